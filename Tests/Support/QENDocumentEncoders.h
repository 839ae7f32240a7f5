#pragma once

// The JSON encoders as they were before they wrote straight into one buffer: each span built as
// an nlohmann-json document from its reading, then dumped. Kept as the reference the streaming
// encoders must agree with, document for document.
#include <map>
#include <nlohmann/json.hpp>
#include <span>

#include "QENFoundation/QENNetworkEndianHexString.h"
#include "QENSpanReading.h"
#include "QENThrift/Span.h"

namespace QENDocumentEncoders {

using Json = nlohmann::ordered_json;
using QENFoundation::qen_networkEndianHexString;
using SpanList = std::span<const std::shared_ptr<QENThrift::Span>>;

inline std::string dumped(const Json& json) {
  return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

inline Json tagsOf(const QENSpanReading& reading, Json tags = Json::object()) {
  std::string scratch;
  for (const auto* tag : reading.tags()) {
    tags[tag->key()] = QENSpanReading::tagText(*tag, scratch);
  }
  return tags;
}

inline Json zipkinV2Span(const QENSpanReading& reading) {
  const QENThrift::Span& span = reading.span();
  Json json = {{"traceId", qen_networkEndianHexString(span.trace_id())},
               {"id", qen_networkEndianHexString(span.id())}};
  if (reading.parentId())
    json["parentId"] = qen_networkEndianHexString(*reading.parentId());
  json["name"] = span.name();
  if (reading.timestamp())
    json["timestamp"] = *reading.timestamp();
  if (reading.duration())
    json["duration"] = *reading.duration();
  const bool client = reading.kind() == QENSpanKind::kClient;
  if (client)
    json["kind"] = "CLIENT";
  json["localEndpoint"] = {{"serviceName", reading.serviceName()}};
  if (client)
    json["remoteEndpoint"] = {{"serviceName", reading.remoteServiceName()}};
  for (const auto* annotation : reading.events()) {
    json["annotations"].push_back(
        {{"timestamp", annotation->timestamp()}, {"value", annotation->value()}});
  }
  if (!reading.tags().empty())
    json["tags"] = tagsOf(reading);
  return json;
}

inline std::string zipkinV2JSON(SpanList spans) {
  Json array = Json::array();
  QENSpanReading reading;
  for (const auto& span : spans) {
    if (span != nullptr) {
      reading.read(*span);
      array.push_back(zipkinV2Span(reading));
    }
  }
  return dumped(array);
}

inline Json chromeArguments(const QENSpanReading& reading) {
  const QENThrift::Span& span = reading.span();
  Json arguments = {{"traceId", qen_networkEndianHexString(span.trace_id())},
                    {"spanId", qen_networkEndianHexString(span.id())}};
  if (reading.parentId())
    arguments["parentId"] = qen_networkEndianHexString(*reading.parentId());
  if (reading.kind() == QENSpanKind::kClient) {
    arguments["kind"] = "CLIENT";
    arguments["remoteService"] = reading.remoteServiceName();
  }
  return tagsOf(reading, arguments);  // a tag named like an argument replaces it
}

inline std::string chromeTrace(SpanList spans) {
  QENSpanReading reading;
  Json events = {{{"name", "process_name"},
                  {"ph", "M"},
                  {"pid", 1},
                  {"args", {{"name", reading.serviceName()}}}}};
  std::map<std::int64_t, int> depths;  // a parent's depth plus one; 0 when it is not exported
  for (const auto& span : spans) {
    if (span == nullptr)
      continue;
    const auto parent = span->parent_idIsSet() ? depths.find(span->parent_id()) : depths.end();
    depths[span->id()] = parent == depths.end() ? 0 : parent->second + 1;
  }
  for (const auto& span : spans) {
    if (span == nullptr)
      continue;
    reading.read(*span);
    const Json common = {{"pid", 1}, {"tid", depths[span->id()]}};
    Json event = {{"name", span->name()},
                  {"cat", "span"},
                  {"ph", "X"},
                  {"ts", reading.timestamp().value_or(0)},
                  {"dur", reading.duration().value_or(0)},
                  {"args", chromeArguments(reading)}};
    event.update(common);
    events.push_back(std::move(event));
    for (const auto* annotation : reading.events()) {
      Json instant = {{"name", annotation->value()},
                      {"cat", "annotation"},
                      {"ph", "i"},
                      {"s", "t"},
                      {"ts", annotation->timestamp()}};
      instant.update(common);
      events.push_back(std::move(instant));
    }
  }
  return dumped({{"traceEvents", std::move(events)}, {"displayTimeUnit", "ms"}});
}

}  // namespace QENDocumentEncoders
