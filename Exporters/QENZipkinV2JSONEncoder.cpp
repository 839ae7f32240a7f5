#include "QENZipkinV2JSONEncoder.h"

#include <bit>
#include <charconv>
#include <nlohmann/json.hpp>
#include <optional>

#include "QENFoundation/QENJSONWriter.h"
#include "QENFoundation/QENNetworkEndianHexString.h"
#include "QENThrift/zipkin_spanConstants.h"

namespace {

using QENThrift::AnnotationType;
using QENThrift::BinaryAnnotation;
using Constants = QENThrift::zipkin_spanConstants;
using AnnotationList = std::vector<std::shared_ptr<const BinaryAnnotation>>;

std::uint64_t bigEndian(const BinaryAnnotation::Bytes& bytes) {
  std::uint64_t value = 0;
  for (const std::byte byte : bytes) {
    value = value << 8 | std::to_integer<std::uint64_t>(byte);
  }
  return value;
}

void appendBase64(std::string& text, const BinaryAnnotation::Bytes& bytes) {
  static constexpr char kAlphabet[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
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
}

// The byte count a typed value must have, or 0 for a type of any length.
std::size_t requiredWidth(AnnotationType type) {
  switch (type) {
    case AnnotationType::BOOL:
      return 1;
    case AnnotationType::I16:
      return 2;
    case AnnotationType::I32:
      return 4;
    case AnnotationType::I64:
    case AnnotationType::DOUBLE:
      return 8;
    default:
      return 0;
  }
}

// Whether the annotation becomes a tag: it has a value of a length its type allows.
bool hasTagValue(const BinaryAnnotation* annotation) {
  if (annotation == nullptr || !annotation->value()) {
    return false;
  }
  const std::size_t width = requiredWidth(annotation->annotation_type());
  return width == 0 || annotation->value()->size() == width;
}

template <class Integer>
std::string_view decimal(std::uint64_t bits, std::string& scratch) {
  char digits[24];
  const auto end = std::to_chars(std::begin(digits), std::end(digits),
                                 static_cast<std::int64_t>(static_cast<Integer>(bits)))
                       .ptr;
  scratch.assign(digits, end);
  return scratch;
}

// The tag text of a value hasTagValue accepts, as Zipkin's v1-to-v2 conversion writes it.
std::string_view tagText(const BinaryAnnotation& annotation, std::string& scratch) {
  const BinaryAnnotation::Bytes& bytes = *annotation.value();
  switch (annotation.annotation_type()) {
    case AnnotationType::BOOL:
      return bytes[0] != std::byte{0} ? "true" : "false";
    case AnnotationType::I16:
      return decimal<std::int16_t>(bigEndian(bytes), scratch);
    case AnnotationType::I32:
      return decimal<std::int32_t>(bigEndian(bytes), scratch);
    case AnnotationType::I64:
      return decimal<std::int64_t>(bigEndian(bytes), scratch);
    case AnnotationType::DOUBLE:  // rare: the shortest form that reads back, as JSON numbers are
      scratch = nlohmann::json(std::bit_cast<double>(bigEndian(bytes))).dump();
      return scratch;
    case AnnotationType::STRING:
      return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
    case AnnotationType::BYTES:
    default:
      scratch.clear();
      appendBase64(scratch, bytes);
      return scratch;
  }
}

// Whether a later entry with a value has the same key: of repeated keys, the last one counts.
bool isOverriddenLater(const AnnotationList& annotations, std::size_t index) {
  const std::string& key = annotations[index]->key();
  for (std::size_t later = index + 1; later < annotations.size(); ++later) {
    if (hasTagValue(annotations[later].get()) && annotations[later]->key() == key) {
      return true;
    }
  }
  return false;
}

void writeId(QENJSONWriter& json, std::string_view key, std::int64_t id) {
  char digits[16];
  QENFoundation::qen_writeNetworkEndianHex(id, digits);
  json.key(key);
  json.string({digits, sizeof digits});
}

void writeKindAndAnnotations(QENJSONWriter& json, const QENThrift::Span& span) {
  bool clientSend = false;
  bool clientReceive = false;
  bool anyOther = false;
  for (const auto& annotation : span.annotations()) {
    if (annotation == nullptr)
      continue;
    const bool isSend = annotation->value() == Constants::CLIENT_SEND();
    const bool isReceive = annotation->value() == Constants::CLIENT_RECV();
    clientSend |= isSend;
    clientReceive |= isReceive;
    anyOther |= !isSend && !isReceive;
  }
  if (clientSend && clientReceive) {
    json.key("kind");
    json.string("CLIENT");
  }
  if (!anyOther)
    return;
  json.key("annotations");
  json.beginArray();
  for (const auto& annotation : span.annotations()) {
    if (annotation == nullptr || annotation->value() == Constants::CLIENT_SEND() ||
        annotation->value() == Constants::CLIENT_RECV())
      continue;
    json.beginObject();
    json.key("timestamp");
    json.integer(annotation->timestamp());
    json.key("value");
    json.string(annotation->value());
    json.endObject();
  }
  json.endArray();
}

// The last local component with a value names the local endpoint's service.
void writeLocalEndpoint(QENJSONWriter& json, const AnnotationList& annotations,
                        std::string& scratch) {
  for (auto annotation = annotations.rbegin(); annotation != annotations.rend(); ++annotation) {
    if (hasTagValue(annotation->get()) && (*annotation)->key() == Constants::LOCAL_COMPONENT()) {
      json.key("localEndpoint");
      json.beginObject();
      json.key("serviceName");
      json.string(tagText(**annotation, scratch));
      json.endObject();
      return;
    }
  }
}

// Every other key with a value becomes a tag.
void writeTags(QENJSONWriter& json, const AnnotationList& annotations, std::string& scratch) {
  bool tagsOpen = false;
  for (std::size_t index = 0; index < annotations.size(); ++index) {
    const BinaryAnnotation* annotation = annotations[index].get();
    if (!hasTagValue(annotation) || annotation->key() == Constants::LOCAL_COMPONENT() ||
        isOverriddenLater(annotations, index))
      continue;
    if (!tagsOpen) {
      json.key("tags");
      json.beginObject();
      tagsOpen = true;
    }
    json.key(annotation->key());
    json.string(tagText(*annotation, scratch));
  }
  if (tagsOpen) {
    json.endObject();
  }
}

void writeSpan(QENJSONWriter& json, const QENThrift::Span& span, std::string& scratch) {
  json.beginObject();
  writeId(json, "traceId", span.trace_id());
  writeId(json, "id", span.id());
  if (span.parent_idIsSet() && span.parent_id() != 0) {
    writeId(json, "parentId", span.parent_id());
  }
  json.key("name");
  json.string(span.name());
  if (span.timestampIsSet() && span.timestamp() > 0) {
    json.key("timestamp");
    json.integer(span.timestamp());
  }
  if (span.durationIsSet() && span.duration() > 0) {
    json.key("duration");
    json.integer(span.duration());
  }
  writeKindAndAnnotations(json, span);
  writeLocalEndpoint(json, span.binary_annotations(), scratch);
  writeTags(json, span.binary_annotations(), scratch);
  json.endObject();
}

}  // namespace

std::string QENZipkinV2JSONEncoder::encodeSpans(
    std::span<const std::shared_ptr<QENThrift::Span>> spans) {
  std::string out;
  out.reserve(spans.size() * 512);
  QENJSONWriter json(out);
  std::string scratch;
  json.beginArray();
  for (const auto& span : spans) {
    if (span != nullptr) {
      writeSpan(json, *span, scratch);
    }
  }
  json.endArray();
  return out;
}
