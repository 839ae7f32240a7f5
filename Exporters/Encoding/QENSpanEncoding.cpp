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
  QENEncodedBatch batch;
  batch.body = encode(spans);
  if (gzip) {
    batch.body = QENGzip::compress(batch.body);
  }
  batch.gzipped = gzip;
  batch.contentType = contentType();
  batch.spanCount = spans.size();
  return batch;
}
