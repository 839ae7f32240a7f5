#include "QENChromeTraceEncoder.h"

#include <map>
#include <nlohmann/json.hpp>

#include "QENFoundation/QENNetworkEndianHexString.h"
#include "QENThrift/zipkin_spanConstants.h"

namespace {

using Json = nlohmann::ordered_json;
using QENFoundation::qen_networkEndianHexString;

constexpr int kProcessId = 1;

// Depth of each span id: its parent's depth plus one, 0 for a span whose parent is not exported.
std::map<std::int64_t, int> depthsBySpanId(
    std::span<const std::shared_ptr<QENThrift::Span>> spans) {
  std::map<std::int64_t, int> depths;
  for (const auto& span : spans) {  // export order puts every parent before its children
    if (span == nullptr)
      continue;
    const auto parent = span->parent_idIsSet() ? depths.find(span->parent_id()) : depths.end();
    depths[span->id()] = parent == depths.end() ? 0 : parent->second + 1;
  }
  return depths;
}

Json argumentsOf(const QENThrift::Span& span) {
  Json arguments = {{"traceId", qen_networkEndianHexString(span.trace_id())},
                    {"spanId", qen_networkEndianHexString(span.id())}};
  if (span.parent_idIsSet()) {
    arguments["parentId"] = qen_networkEndianHexString(span.parent_id());
  }
  for (const auto& annotation : span.binary_annotations()) {
    if (annotation == nullptr)
      continue;
    const bool isText = annotation->annotation_type() == QENThrift::AnnotationType::STRING;
    const auto& bytes = annotation->value();
    arguments[annotation->key()] =
        isText && bytes ? std::string(reinterpret_cast<const char*>(bytes->data()), bytes->size())
                        : "0x" + QENFoundation::qen_hexString(
                                     bytes.value_or(QENThrift::BinaryAnnotation::Bytes{}));
  }
  return arguments;
}

}  // namespace

std::string QENChromeTraceEncoder::encodeSpans(
    std::span<const std::shared_ptr<QENThrift::Span>> spans) {
  const auto depths = depthsBySpanId(spans);
  Json events = Json::array();
  for (const auto& span : spans) {
    if (span == nullptr)
      continue;
    const int track = depths.at(span->id());
    events.push_back({{"name", span->name()},
                      {"cat", "span"},
                      {"ph", "X"},
                      {"ts", span->timestamp()},
                      {"dur", span->duration()},
                      {"pid", kProcessId},
                      {"tid", track},
                      {"args", argumentsOf(*span)}});
    for (const auto& annotation : span->annotations()) {
      if (annotation == nullptr ||
          annotation->value() == QENThrift::zipkin_spanConstants::CLIENT_SEND() ||
          annotation->value() == QENThrift::zipkin_spanConstants::CLIENT_RECV()) {
        continue;
      }
      events.push_back({{"name", annotation->value()},
                        {"cat", "annotation"},
                        {"ph", "i"},
                        {"s", "t"},
                        {"ts", annotation->timestamp()},
                        {"pid", kProcessId},
                        {"tid", track}});
    }
  }
  const Json trace = {{"traceEvents", std::move(events)}, {"displayTimeUnit", "ms"}};
  return trace.dump(-1, ' ', false, Json::error_handler_t::replace);
}
