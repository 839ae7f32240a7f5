#include "QENSpanEncoding.h"

#include "QENGzip.h"
#include "QENOTLPJSONEncoder.h"
#include "QENZipkinV2JSONEncoder.h"

namespace {

// The elements of the JSON array whose "[" is at `open`, as written; nullopt when no whole array
// starts there. Strings are skipped whole, so that no bracket or comma in one counts.
std::optional<std::vector<std::string>> arrayElements(std::string_view text, std::size_t open) {
  if (open >= text.size() || text[open] != '[') {
    return std::nullopt;
  }
  std::vector<std::string> elements;
  int depth = 0;
  bool inString = false;
  bool escaped = false;
  std::size_t start = open + 1;
  for (std::size_t index = open; index < text.size(); ++index) {
    const char c = text[index];
    if (inString) {
      if (escaped) {
        escaped = false;
      } else if (c == '\\') {
        escaped = true;
      } else if (c == '"') {
        inString = false;
      }
    } else if (c == '"') {
      inString = true;
    } else if (c == '[' || c == '{') {
      ++depth;
    } else if (c == ',' && depth == 1) {
      elements.emplace_back(text.substr(start, index - start));
      start = index + 1;
    } else if ((c == ']' || c == '}') && --depth == 0) {
      if (index > start) {
        elements.emplace_back(text.substr(start, index - start));
      }
      return elements;
    }
  }
  return std::nullopt;
}

}  // namespace

std::string QENSpanEncoding::encode(Spans spans) const {
  switch (format) {
    case QENSpanEncodingFormat::kZipkinV1Thrift: {
      const auto bytes = QENZipkinThriftEncoder::encodeSpans(spans, thriftForm, reading);
      return std::string(bytes.begin(), bytes.end());
    }
    case QENSpanEncodingFormat::kOTLPJSON:
      return QENOTLPJSONEncoder::encodeSpans(spans, reading);
    case QENSpanEncodingFormat::kZipkinV2JSON:
    default:
      return QENZipkinV2JSONEncoder::encodeSpans(spans, reading);
  }
}

std::string_view QENSpanEncoding::contentType() const {
  return format == QENSpanEncodingFormat::kZipkinV1Thrift ? "application/x-thrift"
                                                          : "application/json";
}

QENEncodedBatch QENSpanEncoding::encodeBatch(Spans spans) const {
  return batchOf(encode(spans), spans.size());
}

std::string QENSpanEncoding::encodeSpan(const QENThrift::Span& span) const {
  switch (format) {
    case QENSpanEncodingFormat::kZipkinV1Thrift:
      return QENZipkinThriftEncoder::encodeSpan(span, thriftForm, reading);
    case QENSpanEncodingFormat::kOTLPJSON:
      return QENOTLPJSONEncoder::encodeSpan(span, reading);
    case QENSpanEncodingFormat::kZipkinV2JSON:
    default:
      return QENZipkinV2JSONEncoder::encodeSpan(span, reading);
  }
}

QENEncodedBatch QENSpanEncoding::frameBatch(std::span<const std::string> encodedSpans) const {
  switch (format) {
    case QENSpanEncodingFormat::kZipkinV1Thrift: {
      const auto bytes = QENZipkinThriftEncoder::frameSpans(encodedSpans);
      return batchOf(std::string(bytes.begin(), bytes.end()), encodedSpans.size());
    }
    case QENSpanEncodingFormat::kOTLPJSON:
      return batchOf(QENOTLPJSONEncoder::frameSpans(encodedSpans, reading), encodedSpans.size());
    case QENSpanEncodingFormat::kZipkinV2JSON:
    default:
      return batchOf(QENZipkinV2JSONEncoder::frameSpans(encodedSpans), encodedSpans.size());
  }
}

std::optional<std::vector<std::string>> QENSpanEncoding::unframeBatch(std::string_view body) const {
  switch (format) {
    case QENSpanEncodingFormat::kZipkinV1Thrift:
      return QENZipkinThriftEncoder::unframeSpans(body);
    case QENSpanEncodingFormat::kOTLPJSON: {
      constexpr std::string_view kSpans = "\"spans\":";  // the one array of spans in a request
      const std::size_t at = body.find(kSpans);
      return at == std::string_view::npos ? std::nullopt : arrayElements(body, at + kSpans.size());
    }
    case QENSpanEncodingFormat::kZipkinV2JSON:
    default:
      return arrayElements(body, 0);
  }
}

QENEncodedBatch QENSpanEncoding::batchOf(std::string body, std::size_t spanCount) const {
  QENEncodedBatch batch;
  // A body zlib could not compress goes as it is, and says so.
  std::optional<std::string> compressed = gzip ? QENGzip::compress(body) : std::nullopt;
  batch.gzipped = compressed.has_value();
  batch.body = compressed ? std::move(*compressed) : std::move(body);
  batch.contentType = contentType();
  batch.spanCount = spanCount;
  return batch;
}
