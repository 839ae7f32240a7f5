#include "QENChromeTraceEncoder.h"

#include <unordered_map>

#include "QENFoundation/QENJSONWriter.h"
#include "QENFoundation/QENNetworkEndianHexString.h"
#include "QENThrift/zipkin_spanConstants.h"

namespace {

using Constants = QENThrift::zipkin_spanConstants;
using AnnotationList = std::vector<std::shared_ptr<const QENThrift::BinaryAnnotation>>;

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

// Whether a binary annotation at or after `from` has this key: of repeated keys the last counts,
// and a binary annotation named like an id argument replaces it.
bool hasKeyFrom(const AnnotationList& annotations, std::size_t from, std::string_view key) {
  for (std::size_t index = from; index < annotations.size(); ++index) {
    if (annotations[index] != nullptr && annotations[index]->key() == key) {
      return true;
    }
  }
  return false;
}

void writeIdArgument(QENJSONWriter& json, const AnnotationList& annotations, std::string_view key,
                     std::int64_t id) {
  if (hasKeyFrom(annotations, 0, key))
    return;
  char digits[16];
  QENFoundation::qen_writeNetworkEndianHex(id, digits);
  json.key(key);
  json.string({digits, sizeof digits});
}

// Text values as they are, everything else as 0x and its bytes in hexadecimal.
void writeArguments(QENJSONWriter& json, const QENThrift::Span& span, std::string& scratch) {
  const AnnotationList& annotations = span.binary_annotations();
  json.key("args");
  json.beginObject();
  writeIdArgument(json, annotations, "traceId", span.trace_id());
  writeIdArgument(json, annotations, "spanId", span.id());
  if (span.parent_idIsSet()) {
    writeIdArgument(json, annotations, "parentId", span.parent_id());
  }
  for (std::size_t index = 0; index < annotations.size(); ++index) {
    const auto& annotation = annotations[index];
    if (annotation == nullptr || hasKeyFrom(annotations, index + 1, annotation->key()))
      continue;
    const auto& bytes = annotation->value();
    json.key(annotation->key());
    if (annotation->annotation_type() == QENThrift::AnnotationType::STRING && bytes) {
      json.string({reinterpret_cast<const char*>(bytes->data()), bytes->size()});
    } else {
      scratch = "0x";
      if (bytes) {
        scratch += QENFoundation::qen_hexString(*bytes);
      }
      json.string(scratch);
    }
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

// The span as a complete event, then each annotation but client-send and -receive as an instant.
void writeSpanEvents(QENJSONWriter& json, const QENThrift::Span& span, int track,
                     std::string& scratch) {
  json.beginObject();
  writeCommonFields(json, span.name(), "span", "X", span.timestamp(), track);
  json.key("dur");
  json.integer(span.duration());
  writeArguments(json, span, scratch);
  json.endObject();
  for (const auto& annotation : span.annotations()) {
    if (annotation == nullptr || annotation->value() == Constants::CLIENT_SEND() ||
        annotation->value() == Constants::CLIENT_RECV()) {
      continue;
    }
    json.beginObject();
    writeCommonFields(json, annotation->value(), "annotation", "i", annotation->timestamp(), track);
    json.key("s");
    json.string("t");
    json.endObject();
  }
}

}  // namespace

std::string QENChromeTraceEncoder::encodeSpans(
    std::span<const std::shared_ptr<QENThrift::Span>> spans) {
  const auto depths = depthsBySpanId(spans);
  std::string out;
  out.reserve(spans.size() * 512);
  QENJSONWriter json(out);
  std::string scratch;
  json.beginObject();
  json.key("traceEvents");
  json.beginArray();
  for (const auto& span : spans) {
    if (span != nullptr) {
      writeSpanEvents(json, *span, depths.at(span->id()), scratch);
    }
  }
  json.endArray();
  json.key("displayTimeUnit");
  json.string("ms");
  json.endObject();
  return out;
}
