#include "QENZipkinV2JSONEncoder.h"

#include "QENFoundation/QENJSONWriter.h"
#include "QENFoundation/QENNetworkEndianHexString.h"
#include "QENJSONSpanFragments.h"

namespace {

void writeId(QENJSONWriter& json, std::string_view key, std::int64_t id) {
  char digits[16];
  QENFoundation::qen_writeNetworkEndianHex(id, digits);
  json.key(key);
  json.string({digits, sizeof digits});
}

void writeEndpoint(QENJSONWriter& json, std::string_view key, std::string_view serviceName) {
  json.key(key);
  json.beginObject();
  json.key("serviceName");
  json.string(serviceName);
  json.endObject();
}

void writeKindAndEndpoints(QENJSONWriter& json, const QENSpanReading& reading) {
  if (reading.kind() == QENSpanKind::kClient) {
    json.key("kind");
    json.string("CLIENT");
  }
  writeEndpoint(json, "localEndpoint", reading.serviceName());
  if (reading.kind() == QENSpanKind::kClient) {
    writeEndpoint(json, "remoteEndpoint", reading.remoteServiceName());
  }
}

void writeAnnotations(QENJSONWriter& json, const QENSpanReading& reading) {
  if (reading.events().empty())
    return;
  json.key("annotations");
  json.beginArray();
  for (const auto* annotation : reading.events()) {
    json.beginObject();
    json.key("timestamp");
    json.integer(annotation->timestamp());
    json.key("value");
    json.string(annotation->value());
    json.endObject();
  }
  json.endArray();
}

void writeTags(QENJSONWriter& json, const QENSpanReading& reading, std::string& scratch) {
  if (reading.tags().empty())
    return;
  constexpr std::size_t kTypicalTagBytes = 32;  // "key":"value",
  json.key("tags");
  json.reserveMore(reading.tags().size() * kTypicalTagBytes);
  json.beginObject();
  for (const auto* tag : reading.tags()) {
    json.key(tag->key());
    json.string(QENSpanReading::tagText(*tag, scratch));
  }
  json.endObject();
}

void writeSpan(QENJSONWriter& json, const QENSpanReading& reading, std::string& scratch) {
  const QENThrift::Span& span = reading.span();
  json.beginObject();
  writeId(json, "traceId", span.trace_id());
  writeId(json, "id", span.id());
  if (reading.parentId()) {
    writeId(json, "parentId", *reading.parentId());
  }
  json.key("name");
  json.string(reading.name());
  if (reading.timestamp()) {
    json.key("timestamp");
    json.integer(*reading.timestamp());
  }
  if (reading.duration()) {
    json.key("duration");
    json.integer(*reading.duration());
  }
  writeKindAndEndpoints(json, reading);
  writeAnnotations(json, reading);
  writeTags(json, reading, scratch);
  json.endObject();
}

}  // namespace

std::string QENZipkinV2JSONEncoder::encodeSpans(
    std::span<const std::shared_ptr<QENThrift::Span>> spans, const QENSpanReadingOptions& options) {
  std::string out;
  out.reserve(spans.size() * 512);
  QENJSONWriter json(out);
  QENSpanReading reading(options);
  std::string scratch;
  json.beginArray();
  reading.readEach(spans, [&](const QENSpanReading& read) { writeSpan(json, read, scratch); });
  json.endArray();
  return out;
}

std::string QENZipkinV2JSONEncoder::encodeSpan(const QENThrift::Span& span,
                                               const QENSpanReadingOptions& options) {
  return QENJSONSpanFragments::encode(span, options, writeSpan);
}

std::string QENZipkinV2JSONEncoder::frameSpans(std::span<const std::string> encodedSpans) {
  std::string out;
  QENJSONWriter json(out);
  json.beginArray();
  QENJSONSpanFragments::place(json, encodedSpans);
  json.endArray();
  return out;
}
