#include "QENOTLPJSONEncoder.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <nlohmann/json.hpp>

#include "QENDevice/QENDevice.h"
#include "QENFoundation/QENJSONWriter.h"
#include "QENFoundation/QENNetworkEndianHexString.h"
#include "QENJSONSpanFragments.h"
#include "QENPerformanceLoggerVersion.h"

namespace {

using QENThrift::AnnotationType;
using QENThrift::BinaryAnnotation;

constexpr std::string_view kLibraryName = "QENPerformanceLogger";
constexpr int kClientKind = 3;
constexpr std::string_view kServerAddressKey = "server.address";

void writeHexId(QENJSONWriter& json, std::string_view key, std::int64_t id, bool widened) {
  char digits[32];
  std::fill_n(digits, 16, '0');
  QENFoundation::qen_writeNetworkEndianHex(id, std::span<char, 32>(digits).last<16>());
  json.key(key);
  json.string(widened ? std::string_view(digits, 32) : std::string_view(digits + 16, 16));
}

// Unix nanoseconds of a reading's time, which always fit.
void writeNanoseconds(QENJSONWriter& json, std::string_view key, std::int64_t microseconds) {
  char digits[24];
  const auto end = std::to_chars(std::begin(digits), std::end(digits), microseconds * 1000).ptr;
  json.key(key);
  json.string({digits, static_cast<std::size_t>(end - digits)});
}

void writeStringAttribute(QENJSONWriter& json, std::string_view key, std::string_view value) {
  json.beginObject();
  json.key("key");
  json.string(key);
  json.key("value");
  json.beginObject();
  json.key("stringValue");
  json.string(value);
  json.endObject();
  json.endObject();
}

// A number, but NaN and the infinities, which JSON has no number for, as strings.
void writeDouble(QENJSONWriter& json, const BinaryAnnotation& tag, std::string& scratch) {
  const std::string_view text = QENSpanReading::tagText(tag, scratch);
  const bool isNumber = text != "NaN" && text != "Infinity" && text != "-Infinity";
  isNumber ? json.literal(text) : json.string(text);
}

void writeTypedValue(QENJSONWriter& json, const BinaryAnnotation& tag, std::string& scratch) {
  json.beginObject();
  switch (tag.annotation_type()) {
    case AnnotationType::BOOL:
      json.key("boolValue");
      json.boolean((*tag.value())[0] != std::byte{0});
      break;
    case AnnotationType::I16:
    case AnnotationType::I32:
    case AnnotationType::I64:
      json.key("intValue");
      json.string(QENSpanReading::tagText(tag, scratch));
      break;
    case AnnotationType::DOUBLE:
      json.key("doubleValue");
      writeDouble(json, tag, scratch);
      break;
    case AnnotationType::STRING:
      json.key("stringValue");
      json.string(QENSpanReading::tagText(tag, scratch));
      break;
    default:
      json.key("bytesValue");
      json.string(QENSpanReading::tagText(tag, scratch));
      break;
  }
  json.endObject();
}

void writeAttributes(QENJSONWriter& json, const QENSpanReading& reading, std::string& scratch) {
  const auto tags = reading.tags();
  const bool namesServer = reading.kind() == QENSpanKind::kClient &&
                           std::none_of(tags.begin(), tags.end(), [](const auto* tag) {
                             return tag->key() == kServerAddressKey;
                           });
  if (tags.empty() && !namesServer)
    return;
  // {"key":"key","value":{"stringValue":"value"}},
  constexpr std::size_t kTypicalAttributeBytes = 64;
  json.key("attributes");
  json.reserveMore(tags.size() * kTypicalAttributeBytes);
  json.beginArray();
  if (namesServer) {
    writeStringAttribute(json, kServerAddressKey, reading.remoteServiceName());
  }
  for (const auto* tag : tags) {
    json.beginObject();
    json.key("key");
    json.string(tag->key());
    json.key("value");
    writeTypedValue(json, *tag, scratch);
    json.endObject();
  }
  json.endArray();
}

void writeEvents(QENJSONWriter& json, const QENSpanReading& reading) {
  if (reading.events().empty())
    return;
  json.key("events");
  json.beginArray();
  for (const auto* event : reading.events()) {
    json.beginObject();
    writeNanoseconds(json, "timeUnixNano", event->timestamp());
    json.key("name");
    json.string(event->value());
    json.endObject();
  }
  json.endArray();
}

void writeSpan(QENJSONWriter& json, const QENSpanReading& reading, std::string& scratch) {
  const QENThrift::Span& span = reading.span();
  json.beginObject();
  writeHexId(json, "traceId", span.trace_id(), true);
  writeHexId(json, "spanId", span.id(), false);
  if (reading.parentId()) {
    writeHexId(json, "parentSpanId", *reading.parentId(), false);
  }
  json.key("name");
  json.string(reading.name());
  if (reading.kind() == QENSpanKind::kClient) {
    json.key("kind");
    json.integer(kClientKind);
  }
  if (reading.timestamp()) {
    writeNanoseconds(json, "startTimeUnixNano", *reading.timestamp());
    writeNanoseconds(json, "endTimeUnixNano",
                     *reading.timestamp() + reading.duration().value_or(0));
  }
  writeAttributes(json, reading, scratch);
  writeEvents(json, reading);
  json.endObject();
}

void writeResource(QENJSONWriter& json, std::string_view serviceName) {
  json.key("resource");
  json.beginObject();
  json.key("attributes");
  json.beginArray();
  writeStringAttribute(json, "service.name", serviceName);
  writeStringAttribute(json, "os.type", QENDevice::operatingSystemType());
  writeStringAttribute(json, "telemetry.sdk.name", kLibraryName);
  writeStringAttribute(json, "telemetry.sdk.language", "cpp");
  writeStringAttribute(json, "telemetry.sdk.version", QENPerformanceLoggerVersionString);
  json.endArray();
  json.endObject();
}

void writeScope(QENJSONWriter& json) {
  json.key("scope");
  json.beginObject();
  json.key("name");
  json.string(kLibraryName);
  json.key("version");
  json.string(QENPerformanceLoggerVersionString);
  json.endObject();
}

// Writes the request around its spans, which `writeSpans` writes into the spans array.
template <class WriteSpans>
std::string writeRequest(std::size_t spanCount, const std::string& serviceName,
                         const WriteSpans& writeSpans) {
  std::string out;
  out.reserve(spanCount * 640 + 512);
  QENJSONWriter json(out);
  json.beginObject();
  json.key("resourceSpans");
  json.beginArray();
  json.beginObject();
  writeResource(json, serviceName);
  json.key("scopeSpans");
  json.beginArray();
  json.beginObject();
  writeScope(json);
  json.key("spans");
  json.beginArray();
  writeSpans(json);
  json.endArray();
  json.endObject();
  json.endArray();
  json.endObject();
  json.endArray();
  json.endObject();
  return out;
}

}  // namespace

std::string QENOTLPJSONEncoder::encodeSpans(std::span<const std::shared_ptr<QENThrift::Span>> spans,
                                            const QENSpanReadingOptions& options) {
  QENSpanReading reading(options);
  std::string scratch;
  return writeRequest(spans.size(), reading.serviceName(), [&](QENJSONWriter& json) {
    reading.readEach(spans, [&](const QENSpanReading& read) { writeSpan(json, read, scratch); });
  });
}

std::string QENOTLPJSONEncoder::encodeSpan(const QENThrift::Span& span,
                                           const QENSpanReadingOptions& options) {
  return QENJSONSpanFragments::encode(span, options, writeSpan);
}

std::string QENOTLPJSONEncoder::frameSpans(std::span<const std::string> encodedSpans,
                                           const QENSpanReadingOptions& options) {
  const QENSpanReading reading(options);
  return writeRequest(0, reading.serviceName(), [&](QENJSONWriter& json) {
    QENJSONSpanFragments::place(json, encodedSpans);
  });
}
