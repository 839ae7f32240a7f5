#include "QENZipkinThriftEncoder.h"

#include <algorithm>
#include <deque>
#include <optional>

#include "QENThrift/zipkin_spanConstants.h"
#include "QENThriftBinaryWriter.h"

namespace {

using Writer = QENThriftBinaryWriter;
using Constants = QENThrift::zipkin_spanConstants;

// Absent entries are left out of every list, so a list's size is the count of present ones.
template <class Range>
std::int32_t presentCount(const Range& entries) {
  return static_cast<std::int32_t>(std::count_if(
      entries.begin(), entries.end(), [](const auto& entry) { return entry != nullptr; }));
}

void writeAddressAndService(Writer& writer, std::int32_t ipv4, std::int16_t port,
                            std::string_view serviceName) {
  writer.writeFieldBegin(Writer::kI32, 1);
  writer.writeI32(ipv4);
  writer.writeFieldBegin(Writer::kI16, 2);
  writer.writeI16(port);
  writer.writeFieldBegin(Writer::kString, 3);
  writer.writeString(serviceName);
}

void writeEndpoint(Writer& writer, const QENThrift::Endpoint& endpoint) {
  writeAddressAndService(writer, endpoint.ipv4(), endpoint.port(), endpoint.service_name());
  if (endpoint.ipv6()) {
    writer.writeFieldBegin(Writer::kString, 4);
    writer.writeBinary(endpoint.ipv6()->data(), endpoint.ipv6()->size());
  }
  writer.writeFieldStop();
}

void writeHost(Writer& writer, std::int16_t fieldId,
               const std::shared_ptr<const QENThrift::Endpoint>& host) {
  if (host) {
    writer.writeFieldBegin(Writer::kStruct, fieldId);
    writeEndpoint(writer, *host);
  }
}

void writeAnnotation(Writer& writer, const QENThrift::Annotation& annotation) {
  writer.writeFieldBegin(Writer::kI64, 1);
  writer.writeI64(annotation.timestamp());
  writer.writeFieldBegin(Writer::kString, 2);
  writer.writeString(annotation.value());
  writeHost(writer, 3, annotation.host());
  writer.writeFieldStop();
}

void writeBinaryAnnotation(Writer& writer, const QENThrift::BinaryAnnotation& annotation) {
  writer.writeFieldBegin(Writer::kString, 1);
  writer.writeString(annotation.key());
  if (annotation.value()) {
    writer.writeFieldBegin(Writer::kString, 2);
    writer.writeBinary(annotation.value()->data(), annotation.value()->size());
  }
  writer.writeFieldBegin(Writer::kI32, 3);
  writer.writeI32(static_cast<std::int32_t>(annotation.annotation_type()));
  writeHost(writer, 4, annotation.host());
  writer.writeFieldStop();
}

template <class Entry, class WriteEntry>
void writeStructList(Writer& writer, std::int16_t fieldId, const std::vector<Entry>& entries,
                     const WriteEntry& writeEntry) {
  writer.writeFieldBegin(Writer::kList, fieldId);
  writer.writeListBegin(Writer::kStruct, presentCount(entries));
  for (const auto& entry : entries) {
    if (entry) {
      writeEntry(writer, *entry);
    }
  }
}

void writeIdsAndName(Writer& writer, const QENThrift::Span& span, std::string_view name,
                     std::optional<std::int64_t> parentId) {
  writer.writeFieldBegin(Writer::kI64, 1);
  writer.writeI64(span.trace_id());
  writer.writeFieldBegin(Writer::kString, 3);
  writer.writeString(name);
  writer.writeFieldBegin(Writer::kI64, 4);
  writer.writeI64(span.id());
  if (parentId) {
    writer.writeFieldBegin(Writer::kI64, 5);
    writer.writeI64(*parentId);
  }
}

void writeScrubbedBinaryAnnotations(Writer& writer, const QENThrift::Span& span,
                                    const QENSpanScrubber& scrubber) {
  std::vector<const QENThrift::BinaryAnnotation*> annotations;
  for (const auto& annotation : span.binary_annotations()) {
    if (annotation != nullptr) {
      annotations.push_back(annotation.get());
    }
  }
  std::deque<QENThrift::BinaryAnnotation> changed;
  scrubber.scrubEach(annotations, changed);
  writer.writeFieldBegin(Writer::kList, 8);
  writer.writeListBegin(Writer::kStruct, static_cast<std::int32_t>(annotations.size()));
  for (const auto* annotation : annotations) {
    writeBinaryAnnotation(writer, *annotation);
  }
}

void writeSpan(Writer& writer, const QENThrift::Span& span, const QENSpanScrubber& scrubber) {
  const std::optional<std::string> name = scrubber.scrubbedName(span.name());
  writeIdsAndName(writer, span, name ? std::string_view(*name) : std::string_view(span.name()),
                  span.parent_idIsSet() ? std::optional(span.parent_id()) : std::nullopt);
  writeStructList(writer, 6, span.annotations(), writeAnnotation);
  writeScrubbedBinaryAnnotations(writer, span, scrubber);
  if (span.timestampIsSet()) {
    writer.writeFieldBegin(Writer::kI64, 10);
    writer.writeI64(span.timestamp());
  }
  if (span.durationIsSet()) {
    writer.writeFieldBegin(Writer::kI64, 11);
    writer.writeI64(span.duration());
  }
  writer.writeFieldStop();
}

// The backend-safe form.

void writeEndpointNamed(Writer& writer, std::int16_t fieldId, std::string_view serviceName) {
  writer.writeFieldBegin(Writer::kStruct, fieldId);
  writeAddressAndService(writer, 0, 0, serviceName);
  writer.writeFieldStop();
}

void writeEvent(Writer& writer, std::int64_t timestamp, std::string_view value,
                std::string_view serviceName) {
  writer.writeFieldBegin(Writer::kI64, 1);
  writer.writeI64(timestamp);
  writer.writeFieldBegin(Writer::kString, 2);
  writer.writeString(value);
  writeEndpointNamed(writer, 3, serviceName);
  writer.writeFieldStop();
}

void writeReadEvents(Writer& writer, const QENSpanReading& reading) {
  const bool isClient = reading.kind() == QENSpanKind::kClient && reading.timestamp();
  const bool hasEnd = isClient && reading.duration();
  writer.writeFieldBegin(Writer::kList, 6);
  writer.writeListBegin(
      Writer::kStruct,
      static_cast<std::int32_t>(reading.events().size() + (isClient ? 1 : 0) + (hasEnd ? 1 : 0)));
  if (isClient) {
    writeEvent(writer, *reading.timestamp(), Constants::CLIENT_SEND(), reading.serviceName());
  }
  if (hasEnd) {
    writeEvent(writer, *reading.timestamp() + *reading.duration(), Constants::CLIENT_RECV(),
               reading.serviceName());
  }
  for (const auto* annotation : reading.events()) {
    writeEvent(writer, annotation->timestamp(), annotation->value(), reading.serviceName());
  }
}

void writeServerAddress(Writer& writer, std::string_view remoteServiceName) {
  static constexpr std::byte kTrue{1};
  writer.writeFieldBegin(Writer::kString, 1);
  writer.writeString(Constants::SERVER_ADDR());
  writer.writeFieldBegin(Writer::kString, 2);
  writer.writeBinary(&kTrue, 1);
  writer.writeFieldBegin(Writer::kI32, 3);
  writer.writeI32(static_cast<std::int32_t>(QENThrift::AnnotationType::BOOL));
  writeEndpointNamed(writer, 4, remoteServiceName);
  writer.writeFieldStop();
}

void writeReadTags(Writer& writer, const QENSpanReading& reading) {
  const bool isClient = reading.kind() == QENSpanKind::kClient;
  writer.writeFieldBegin(Writer::kList, 8);
  writer.writeListBegin(Writer::kStruct,
                        static_cast<std::int32_t>(reading.tags().size() + (isClient ? 1 : 0)));
  std::string scratch;
  for (const auto* tag : reading.tags()) {
    writer.writeFieldBegin(Writer::kString, 1);
    writer.writeString(tag->key());
    // As text, the v2 tag's value: a v1 backend keeps string binary annotations only.
    writer.writeFieldBegin(Writer::kString, 2);
    writer.writeString(QENSpanReading::tagText(*tag, scratch));
    writer.writeFieldBegin(Writer::kI32, 3);
    writer.writeI32(static_cast<std::int32_t>(QENThrift::AnnotationType::STRING));
    if (tag->key() == Constants::LOCAL_COMPONENT()) {
      writeEndpointNamed(writer, 4, reading.serviceName());
    }
    writer.writeFieldStop();
  }
  if (isClient) {
    writeServerAddress(writer, reading.remoteServiceName());
  }
}

void writeReadSpan(Writer& writer, const QENSpanReading& reading) {
  writeIdsAndName(writer, reading.span(), reading.name(), reading.parentId());
  writeReadEvents(writer, reading);
  writeReadTags(writer, reading);
  writer.writeFieldBegin(Writer::kI64, 10);
  writer.writeI64(reading.timestamp().value_or(0));
  writer.writeFieldBegin(Writer::kI64, 11);
  writer.writeI64(reading.duration().value_or(0));
  writer.writeFieldStop();
}

// Reads Thrift's binary protocol only far enough to find where each value ends.
class Skipper {
 public:
  explicit Skipper(std::string_view bytes) : bytes_(bytes) {}

  std::size_t position() const { return position_; }
  bool atEnd() const { return position_ == bytes_.size(); }
  std::optional<std::uint32_t> listOfStructs() {
    if (!has(5) || static_cast<std::uint8_t>(bytes_[position_]) != Writer::kStruct) {
      return std::nullopt;
    }
    ++position_;
    return readI32();
  }
  bool skip(std::uint8_t type, int depth = 0) {
    switch (type) {
      case Writer::kBool:
      case 3:  // byte
        return advance(1);
      case Writer::kI16:
        return advance(2);
      case Writer::kI32:
        return advance(4);
      case 4:  // double
      case Writer::kI64:
        return advance(8);
      case Writer::kString: {
        const auto length = readI32();
        return length && advance(*length);
      }
      case Writer::kStruct:
        return depth < kDeepest && skipFields(depth + 1);
      case Writer::kList:
        return depth < kDeepest && skipList(depth + 1);
      default:  // sets and maps: no span has them
        return false;
    }
  }

 private:
  static constexpr int kDeepest = 16;

  bool has(std::size_t count) const { return bytes_.size() - position_ >= count; }
  bool advance(std::size_t count) { return has(count) && ((position_ += count), true); }
  std::optional<std::uint32_t> readI32() {
    if (!has(4)) {
      return std::nullopt;
    }
    std::uint32_t value = 0;
    for (int index = 0; index < 4; ++index) {
      value = value << 8 | static_cast<std::uint8_t>(bytes_[position_++]);
    }
    return value;
  }
  bool skipFields(int depth) {
    while (has(1)) {
      const auto type = static_cast<std::uint8_t>(bytes_[position_++]);
      if (type == 0) {
        return true;  // the struct's stop
      }
      if (!advance(2) || !skip(type, depth)) {  // the field id, then the value
        return false;
      }
    }
    return false;
  }
  bool skipList(int depth) {
    if (!has(5)) {
      return false;
    }
    const auto type = static_cast<std::uint8_t>(bytes_[position_++]);
    const auto count = readI32();
    for (std::uint32_t index = 0; count && index < *count; ++index) {
      if (!skip(type, depth)) {
        return false;
      }
    }
    return count.has_value();
  }

  std::string_view bytes_;
  std::size_t position_ = 0;
};

void writeSpanIn(Writer& writer, const QENThrift::Span& span, QENZipkinThriftEncoder::Form form,
                 QENSpanReading& reading) {
  if (form == QENZipkinThriftEncoder::Form::kAsMade) {
    writeSpan(writer, span, reading.scrubber());
  } else {
    reading.read(span);
    writeReadSpan(writer, reading);
  }
}

}  // namespace

std::vector<std::uint8_t> QENZipkinThriftEncoder::encodeSpans(
    std::span<const std::shared_ptr<QENThrift::Span>> spans, Form form,
    const QENSpanReadingOptions& options) {
  Writer writer;
  writer.reserve(spans.size() * 512);
  writer.writeListBegin(Writer::kStruct, presentCount(spans));
  QENSpanReading reading(options);
  for (const auto& span : spans) {
    if (span != nullptr) {
      writeSpanIn(writer, *span, form, reading);
    }
  }
  return writer.takeBytes();
}

std::string QENZipkinThriftEncoder::encodeSpan(const QENThrift::Span& span, Form form,
                                               const QENSpanReadingOptions& options) {
  Writer writer;
  QENSpanReading reading(options);
  writeSpanIn(writer, span, form, reading);
  const auto& bytes = writer.bytes();
  return std::string(bytes.begin(), bytes.end());
}

std::vector<std::uint8_t> QENZipkinThriftEncoder::frameSpans(
    std::span<const std::string> encodedSpans) {
  Writer writer;
  writer.writeListBegin(Writer::kStruct, static_cast<std::int32_t>(encodedSpans.size()));
  for (const std::string& encoded : encodedSpans) {
    writer.writeEncoded(encoded);
  }
  return writer.takeBytes();
}

std::optional<std::vector<std::string>> QENZipkinThriftEncoder::unframeSpans(
    std::string_view framed) {
  Skipper skipper(framed);
  const auto count = skipper.listOfStructs();
  if (!count || *count > framed.size()) {
    return std::nullopt;
  }
  std::vector<std::string> spans;
  for (std::uint32_t index = 0; index < *count; ++index) {
    const std::size_t start = skipper.position();
    if (!skipper.skip(Writer::kStruct)) {
      return std::nullopt;
    }
    spans.emplace_back(framed.substr(start, skipper.position() - start));
  }
  return skipper.atEnd() ? std::optional(std::move(spans)) : std::nullopt;
}
