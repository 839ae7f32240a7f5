#pragma once

// The encoders as they were before they wrote straight into one buffer: each span built as an
// nlohmann-json document, then dumped. Kept as the reference the streaming encoders must agree
// with, document for document.
#include <bit>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <span>

#include "QENFoundation/QENNetworkEndianHexString.h"
#include "QENThrift/Span.h"
#include "QENThrift/zipkin_spanConstants.h"

namespace QENDocumentEncoders {
namespace V2 {
namespace Detail {

using Json = nlohmann::ordered_json;
using QENThrift::AnnotationType;
using QENThrift::BinaryAnnotation;
using Constants = QENThrift::zipkin_spanConstants;

inline std::optional<std::uint64_t> bigEndian(const BinaryAnnotation::Bytes& bytes,
                                              std::size_t width) {
  if (bytes.size() != width) {
    return std::nullopt;
  }
  std::uint64_t value = 0;
  for (const std::byte byte : bytes) {
    value = value << 8 | std::to_integer<std::uint64_t>(byte);
  }
  return value;
}

inline std::string base64(const BinaryAnnotation::Bytes& bytes) {
  static constexpr char kAlphabet[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  for (std::size_t index = 0; index < bytes.size(); index += 3) {
    std::uint32_t group = std::to_integer<std::uint32_t>(bytes[index]) << 16;
    const std::size_t available = std::min<std::size_t>(3, bytes.size() - index);
    if (available > 1)
      group |= std::to_integer<std::uint32_t>(bytes[index + 1]) << 8;
    if (available > 2)
      group |= std::to_integer<std::uint32_t>(bytes[index + 2]);
    for (std::size_t sextet = 0; sextet < 4; ++sextet) {
      text += sextet <= available ? kAlphabet[(group >> (18 - 6 * sextet)) & 0x3F] : '=';
    }
  }
  return text;
}

// The tag text of a typed value, as Zipkin's v1-to-v2 conversion writes it.
inline std::optional<std::string> tagValue(const BinaryAnnotation& annotation) {
  if (!annotation.value()) {
    return std::nullopt;
  }
  const BinaryAnnotation::Bytes& bytes = *annotation.value();
  switch (annotation.annotation_type()) {
    case AnnotationType::BOOL:
      return bytes.size() == 1
                 ? std::optional<std::string>(bytes[0] != std::byte{0} ? "true" : "false")
                 : std::nullopt;
    case AnnotationType::I16:
      if (const auto value = bigEndian(bytes, 2))
        return std::to_string(static_cast<std::int16_t>(*value));
      return std::nullopt;
    case AnnotationType::I32:
      if (const auto value = bigEndian(bytes, 4))
        return std::to_string(static_cast<std::int32_t>(*value));
      return std::nullopt;
    case AnnotationType::I64:
      if (const auto value = bigEndian(bytes, 8))
        return std::to_string(static_cast<std::int64_t>(*value));
      return std::nullopt;
    case AnnotationType::DOUBLE:
      if (const auto value = bigEndian(bytes, 8)) {
        return Json(std::bit_cast<double>(*value)).dump();
      }
      return std::nullopt;
    case AnnotationType::STRING:
      return std::string(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    case AnnotationType::BYTES:
    default:
      return base64(bytes);
  }
}

inline Json encodeSpan(const QENThrift::Span& span) {
  using QENFoundation::qen_networkEndianHexString;
  Json json = Json::object();
  json["traceId"] = qen_networkEndianHexString(span.trace_id());
  json["id"] = qen_networkEndianHexString(span.id());
  if (span.parent_idIsSet() && span.parent_id() != 0) {
    json["parentId"] = qen_networkEndianHexString(span.parent_id());
  }
  json["name"] = span.name();
  if (span.timestampIsSet() && span.timestamp() > 0) {
    json["timestamp"] = span.timestamp();
  }
  if (span.durationIsSet() && span.duration() > 0) {
    json["duration"] = span.duration();
  }
  bool clientSend = false;
  bool clientReceive = false;
  Json annotations = Json::array();
  for (const auto& annotation : span.annotations()) {
    if (annotation == nullptr)
      continue;
    if (annotation->value() == Constants::CLIENT_SEND()) {
      clientSend = true;
    } else if (annotation->value() == Constants::CLIENT_RECV()) {
      clientReceive = true;
    } else {
      annotations.push_back(
          {{"timestamp", annotation->timestamp()}, {"value", annotation->value()}});
    }
  }
  if (clientSend && clientReceive) {
    json["kind"] = "CLIENT";
  }
  Json tags = Json::object();
  for (const auto& annotation : span.binary_annotations()) {
    if (annotation == nullptr)
      continue;
    const std::optional<std::string> value = tagValue(*annotation);
    if (!value)
      continue;
    if (annotation->key() == Constants::LOCAL_COMPONENT()) {
      json["localEndpoint"] = {{"serviceName", *value}};
    } else {
      tags[annotation->key()] = *value;
    }
  }
  if (!annotations.empty()) {
    json["annotations"] = std::move(annotations);
  }
  if (!tags.empty()) {
    json["tags"] = std::move(tags);
  }
  return json;
}

}  // namespace Detail

using namespace Detail;

inline std::string zipkinV2JSON(std::span<const std::shared_ptr<QENThrift::Span>> spans) {
  Json array = Json::array();
  for (const auto& span : spans) {
    if (span != nullptr) {
      array.push_back(encodeSpan(*span));
    }
  }
  return array.dump(-1, ' ', false, Json::error_handler_t::replace);
}
}  // namespace V2

namespace Chrome {
namespace Detail {

using Json = nlohmann::ordered_json;
using QENFoundation::qen_networkEndianHexString;

inline constexpr int kProcessId = 1;

// Depth of each span id: its parent's depth plus one, 0 for a span whose parent is not exported.
inline std::map<std::int64_t, int> depthsBySpanId(
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

inline Json argumentsOf(const QENThrift::Span& span) {
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

}  // namespace Detail

using namespace Detail;

inline std::string chromeTrace(std::span<const std::shared_ptr<QENThrift::Span>> spans) {
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
}  // namespace Chrome
}  // namespace QENDocumentEncoders
