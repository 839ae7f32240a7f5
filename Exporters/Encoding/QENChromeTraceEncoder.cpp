#include "QENChromeTraceEncoder.h"

#include <algorithm>
#include <unordered_map>

#include "QENFoundation/QENJSONWriter.h"
#include "QENFoundation/QENNetworkEndianHexString.h"

namespace {

constexpr int kProcessId = 1;

// Depth of each span id: its parent's depth plus one, 0 for a span whose parent is not exported.
std::unordered_map<std::int64_t, int> depthsBySpanId(
    std::span<const std::shared_ptr<QENThrift::Span>> spans) {
  std::unordered_map<std::int64_t, int> depths;
  depths.reserve(spans.size());
  for (const auto& span : spans) {  // export order puts every parent before its children
    if (span == nullptr)
      continue;
    const auto parent = span->parent_idIsSet() ? depths.find(span->parent_id()) : depths.end();
    depths[span->id()] = parent == depths.end() ? 0 : parent->second + 1;
  }
  return depths;
}

// A tag named like an id argument replaces it.
bool hasTag(const QENSpanReading& reading, std::string_view key) {
  return std::any_of(reading.tags().begin(), reading.tags().end(),
                     [key](const auto* tag) { return tag->key() == key; });
}

void writeArgument(QENJSONWriter& json, const QENSpanReading& reading, std::string_view key,
                   std::string_view value) {
  if (!hasTag(reading, key)) {
    json.key(key);
    json.string(value);
  }
}

void writeIdArgument(QENJSONWriter& json, const QENSpanReading& reading, std::string_view key,
                     std::int64_t id) {
  char digits[16];
  QENFoundation::qen_writeNetworkEndianHex(id, digits);
  writeArgument(json, reading, key, {digits, sizeof digits});
}

void writeArguments(QENJSONWriter& json, const QENSpanReading& reading, std::string& scratch) {
  const QENThrift::Span& span = reading.span();
  json.key("args");
  json.beginObject();
  writeIdArgument(json, reading, "traceId", span.trace_id());
  writeIdArgument(json, reading, "spanId", span.id());
  if (reading.parentId()) {
    writeIdArgument(json, reading, "parentId", *reading.parentId());
  }
  if (reading.kind() == QENSpanKind::kClient) {
    writeArgument(json, reading, "kind", "CLIENT");
    writeArgument(json, reading, "remoteService", reading.remoteServiceName());
  }
  for (const auto* tag : reading.tags()) {
    json.key(tag->key());
    json.string(QENSpanReading::tagText(*tag, scratch));
  }
  json.endObject();
}

void writeCommonFields(QENJSONWriter& json, std::string_view name, std::string_view category,
                       std::string_view phase, std::int64_t timestamp, int track) {
  json.key("name");
  json.string(name);
  json.key("cat");
  json.string(category);
  json.key("ph");
  json.string(phase);
  json.key("ts");
  json.integer(timestamp);
  json.key("pid");
  json.integer(kProcessId);
  json.key("tid");
  json.integer(track);
}

// The span as a complete event, then each of its events as an instant.
void writeSpanEvents(QENJSONWriter& json, const QENSpanReading& reading, int track,
                     std::string& scratch) {
  json.beginObject();
  writeCommonFields(json, reading.name(), "span", "X", reading.timestamp().value_or(0), track);
  json.key("dur");
  json.integer(reading.duration().value_or(0));
  writeArguments(json, reading, scratch);
  json.endObject();
  for (const auto* annotation : reading.events()) {
    json.beginObject();
    writeCommonFields(json, annotation->value(), "annotation", "i", annotation->timestamp(), track);
    json.key("s");
    json.string("t");
    json.endObject();
  }
}

// Names the process after the service, as the viewer's track heading.
void writeProcessName(QENJSONWriter& json, std::string_view serviceName) {
  json.beginObject();
  json.key("name");
  json.string("process_name");
  json.key("ph");
  json.string("M");
  json.key("pid");
  json.integer(kProcessId);
  json.key("args");
  json.beginObject();
  json.key("name");
  json.string(serviceName);
  json.endObject();
  json.endObject();
}

}  // namespace

std::string QENChromeTraceEncoder::encodeSpans(
    std::span<const std::shared_ptr<QENThrift::Span>> spans, const QENSpanReadingOptions& options) {
  const auto depths = depthsBySpanId(spans);
  std::string out;
  out.reserve(spans.size() * 512);
  QENJSONWriter json(out);
  QENSpanReading reading(options);
  std::string scratch;
  json.beginObject();
  json.key("traceEvents");
  json.beginArray();
  writeProcessName(json, reading.serviceName());
  reading.readEach(spans, [&](const QENSpanReading& read) {
    writeSpanEvents(json, read, depths.at(read.span().id()), scratch);
  });
  json.endArray();
  json.key("displayTimeUnit");
  json.string("ms");
  json.endObject();
  return out;
}
