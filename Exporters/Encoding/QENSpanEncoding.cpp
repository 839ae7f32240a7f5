#include "QENSpanEncoding.h"

#include "QENGzip.h"
#include "QENOTLPJSONEncoder.h"
#include "QENZipkinV2JSONEncoder.h"

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

QENEncodedBatch QENSpanEncoding::batchOf(std::string body, std::size_t spanCount) const {
  QENEncodedBatch batch;
  batch.body = gzip ? QENGzip::compress(body) : std::move(body);
  batch.gzipped = gzip;
  batch.contentType = contentType();
  batch.spanCount = spanCount;
  return batch;
}
