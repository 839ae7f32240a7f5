#include "QENSpanReading.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>

#include "BinaryAnnotation+QENAdditions.h"
#include "QENDevice/QENDevice.h"
#include "QENFoundation/QENUTF8Validation.h"
#include "QENThrift/tracing_clientConstants.h"
#include "QENThrift/zipkin_spanConstants.h"
#include "QENURLLoading/QENURL.h"
#include "performance_tracing_clientConstants.h"

namespace {

using QENThrift::AnnotationType;
using QENThrift::BinaryAnnotation;
using Constants = QENThrift::zipkin_spanConstants;

// The latest time whose nanoseconds still fit a signed 64-bit integer (in 2262).
constexpr std::int64_t kLatestMicroseconds = std::numeric_limits<std::int64_t>::max() / 1000;

std::string asciiLowerCase(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
  return lower;
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

bool hasTagValue(const BinaryAnnotation* annotation) {
  return annotation != nullptr && QENSpanReading::hasReadableValue(*annotation);
}

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

template <class Integer>
std::string_view decimal(std::uint64_t bits, std::string& scratch) {
  char digits[24];
  const auto end = std::to_chars(std::begin(digits), std::end(digits),
                                 static_cast<std::int64_t>(static_cast<Integer>(bits)))
                       .ptr;
  scratch.assign(digits, end);
  return scratch;
}

// The shortest form that reads back, as JSON numbers are; no number has a JSON form for NaN and
// the infinities, which read as Zipkin's conversion and OTLP's JSON write them.
std::string_view doubleText(double value, std::string& scratch) {
  if (std::isnan(value)) {
    return "NaN";
  }
  if (std::isinf(value)) {
    return value > 0 ? "Infinity" : "-Infinity";
  }
  scratch = nlohmann::json(value).dump();
  return scratch;
}

// A key as the JSON encoders write it: each ill-formed UTF-8 part replaced by U+FFFD.
std::string keyAsWritten(std::string_view key) {
  std::string written;
  for (std::size_t index = 0; index < key.size();) {
    const QENUTF8Sequence sequence = QENUTF8SequenceAt(key, index);
    written.append(sequence.wellFormed ? key.substr(index, sequence.length) : "\xEF\xBF\xBD");
    index += sequence.length;
  }
  return written;
}

// Keys that differ only in ill-formed bytes are one key once written, so the last of them counts.
bool sameKeyAsWritten(std::string_view left, std::string_view right) {
  if (left == right) {
    return true;
  }
  if (QENIsValidUTF8(left) && QENIsValidUTF8(right)) {
    return false;
  }
  return keyAsWritten(left) == keyAsWritten(right);
}

// Where text longer than `maximum` bytes is cut: at a character's start, at most `maximum` in.
std::size_t textCut(std::span<const std::byte> text, std::size_t maximum) {
  std::size_t length = maximum;
  while (length > 1 && (std::to_integer<unsigned>(text[length]) & 0xC0) == 0x80) {
    --length;  // text[length] continues a character: it starts earlier
  }
  return length;
}

// How long a tag's value may stay, or 0 when it is within `maximum` and stays whole.
std::ptrdiff_t cappedLength(const BinaryAnnotation& tag, std::size_t maximum) {
  const auto type = tag.annotation_type();
  const auto& bytes = *tag.value();
  if (bytes.size() <= maximum ||
      (type != AnnotationType::STRING && type != AnnotationType::BYTES)) {
    return 0;
  }
  return static_cast<std::ptrdiff_t>(type == AnnotationType::STRING ? textCut(bytes, maximum)
                                                                    : maximum);
}

// A hint that `address` will be read soon; it changes no result.
void prefetch(const void* address) noexcept {
#if defined(__GNUC__)  // g++ and clang
  __builtin_prefetch(address);
#else
  static_cast<void>(address);
#endif
}

// Every cache line a tag's object lies on (64 bytes a line, as most cores have; where lines are
// longer, some asks are for the same line). A span's list may hold null tags.
void prefetchTag(const BinaryAnnotation* tag) noexcept {
  constexpr std::size_t kLineBytes = 64;
  if (tag == nullptr) {
    return;
  }
  const auto* bytes = reinterpret_cast<const char*>(tag);
  for (std::size_t offset = 0; offset < sizeof(*tag); offset += kLineBytes) {
    prefetch(bytes + offset);
  }
  prefetch(bytes + sizeof(*tag) - 1);
}

// The tags the library itself adds, which the tag cap never drops: they say what a span is (its
// kind and remote service, its user-wait outcome) and where and for whom it was measured.
bool isLibraryTag(std::string_view key) {
  using Keys = QENThrift::tracing_clientConstants;
  using Request = performance_tracing_clientConstants;
  static constexpr std::string_view kKeys[] = {Keys::UWT_CAUSE(),
                                               Keys::UWT_RESULT(),
                                               "uwt_result_reason",
                                               Keys::VIEW_TYPE(),
                                               Keys::VIEW_PARAMETER(),
                                               Keys::USER_ID(),
                                               Keys::NETWORK_TYPE(),
                                               Keys::NETWORK_CELL_TYPE(),
                                               Keys::NETWORK_CELL_CARRIER(),
                                               Keys::NETWORK_SPEED(),
                                               Keys::APP_VERSION(),
                                               Keys::APP_TYPE(),
                                               Keys::DEVICE_TYPE(),
                                               Keys::DEVICE_VERSION(),
                                               Keys::DEVICE_OS(),
                                               Keys::DEVICE_OS_VERSION(),
                                               Keys::CDN_CACHE(),
                                               Keys::CDN_NAME(),
                                               Keys::DATA_SOURCE(),
                                               Keys::HTTP_METHOD(),
                                               Keys::URL(),
                                               Request::IP_VERSION(),
                                               Request::NETWORK_EXPECTED_SIZE(),
                                               Request::NETWORK_RESPONSE_STATUS(),
                                               Request::ENDPOINT_ID(),
                                               QENThrift::zipkin_spanConstants::LOCAL_COMPONENT(),
                                               "qen.recovered"};
  return std::find(std::begin(kKeys), std::end(kKeys), key) != std::end(kKeys);
}

}  // namespace

QENSpanReading::QENSpanReading(const QENSpanReadingOptions& options)
    : serviceName_(asciiLowerCase(options.serviceName.empty() ? QENDevice::platformName()
                                                              : options.serviceName)),
      scrubber_(options.scrubbing),
      maximumTags_(std::max(options.maximumTagsPerSpan, kLeastTagsPerSpan)),
      maximumValueBytes_(std::max(options.maximumTagValueBytes, kLeastTagValueBytes)) {}

bool QENSpanReading::isTime(std::int64_t microseconds) noexcept {
  return microseconds > 0 && microseconds <= kLatestMicroseconds;
}

bool QENSpanReading::hasReadableValue(const BinaryAnnotation& annotation) noexcept {
  if (!annotation.value()) {
    return false;
  }
  const std::size_t width = requiredWidth(annotation.annotation_type());
  return width == 0 || annotation.value()->size() == width;
}

void QENSpanReading::read(const QENThrift::Span& span) {
  span_ = &span;
  scrubbedName_ = scrubber_.isActive() ? scrubber_.scrubbedName(span.name()) : std::nullopt;
  truncatedName_ = name().size() > maximumValueBytes_;
  if (truncatedName_) {
    const auto text = std::as_bytes(std::span(name().data(), name().size()));
    scrubbedName_ = std::string(name().substr(0, textCut(text, maximumValueBytes_)));
  }
  parentId_.reset();
  if (span.parent_idIsSet() && span.parent_id() != 0) {
    parentId_ = span.parent_id();
  }
  readTimes(span);
  readEvents(span);
  readTags(span);
  readRemoteService();
  capTags();
}

void QENSpanReading::readTimes(const QENThrift::Span& span) {
  timestamp_.reset();
  duration_.reset();
  if (!span.timestampIsSet() || !isTime(span.timestamp())) {
    return;
  }
  timestamp_ = span.timestamp();
  if (span.durationIsSet() && span.duration() > 0 &&
      span.duration() <= kLatestMicroseconds - span.timestamp()) {
    duration_ = span.duration();
  }
}

void QENSpanReading::readEvents(const QENThrift::Span& span) {
  events_.clear();
  for (const auto& annotation : span.annotations()) {
    if (annotation != nullptr && isTime(annotation->timestamp()) &&
        annotation->value() != Constants::CLIENT_SEND() &&
        annotation->value() != Constants::CLIENT_RECV()) {
      events_.push_back(annotation.get());
    }
  }
}

void QENSpanReading::readTags(const QENThrift::Span& span) {
  tags_.clear();
  ownTags_.clear();
  requestURL_ = nullptr;
  truncatedValues_ = 0;
  const auto& annotations = span.binary_annotations();
  tags_.reserve(annotations.size());
  // With no more tags than the cap, none is dropped: values are cut as they are kept.
  cutsValuesAsKept_ = annotations.size() <= maximumTags_;
  if (annotations.size() > kLargestPairwiseTagList) {
    keepLastOfEachKey(annotations);
    return;
  }
  for (std::size_t index = 0; index < annotations.size(); ++index) {
    const BinaryAnnotation* annotation = annotations[index].get();
    if (!hasTagValue(annotation))
      continue;
    const bool overriddenLater = std::any_of(
        annotations.begin() + static_cast<std::ptrdiff_t>(index) + 1, annotations.end(),
        [&](const auto& later) {
          return hasTagValue(later.get()) && sameKeyAsWritten(later->key(), annotation->key());
        });
    if (!overriddenLater) {
      keepTag(*annotation);
    }
  }
}

// Walks from the end: a key met again is an earlier tag's, which the later one overrides. Each
// key is hashed a few tags before the walk reaches it, and its slot asked for then: a table of
// thousands of keys does not stay in the core's nearest caches, and every probe would otherwise
// wait on memory.
void QENSpanReading::keepLastOfEachKey(const QENThrift::Span::BinaryAnnotationList& annotations) {
  constexpr std::size_t kHashedAhead = 8;
  const std::size_t mask = std::bit_ceil(annotations.size() * 2) - 1;  // half full at most
  keySlots_.assign(mask + 1, 0);
  keyHashes_.resize(annotations.size());
  for (std::size_t index = annotations.size() - std::min(kHashedAhead, annotations.size());
       index < annotations.size(); ++index) {
    hashKey(annotations, index);
  }
  for (std::size_t index = annotations.size(); index-- > 0;) {
    if (index >= 2 * kHashedAhead) {
      prefetchTag(annotations[index - 2 * kHashedAhead].get());
    }
    if (index >= kHashedAhead) {
      hashKey(annotations, index - kHashedAhead);
      prefetch(&keySlots_[keyHashes_[index - kHashedAhead] & mask]);
    }
    if (hasTagValue(annotations[index].get()) && isFirstSighting(annotations, index, mask)) {
      keepTag(*annotations[index]);
    }
  }
  std::reverse(tags_.begin(), tags_.end());
}

// Keys that are one once written are hashed alike: ill-formed bytes as U+FFFD. The tag's value is
// asked for too, for the scrubbing soon after.
void QENSpanReading::hashKey(const QENThrift::Span::BinaryAnnotationList& annotations,
                             std::size_t index) {
  const BinaryAnnotation* annotation = annotations[index].get();
  if (annotation == nullptr) {
    keyHashes_[index] = 0;
    return;
  }
  if (annotation->value()) {
    prefetch(annotation->value()->data());
  }
  const std::string& key = annotation->key();
  keyHashes_[index] =
      static_cast<std::uint32_t>(QENIsValidUTF8(key) ? std::hash<std::string_view>{}(key)
                                                     : std::hash<std::string>{}(keyAsWritten(key)));
}

bool QENSpanReading::isFirstSighting(const QENThrift::Span::BinaryAnnotationList& annotations,
                                     std::size_t index, std::size_t mask) {
  const std::uint32_t hash = keyHashes_[index];
  const std::string& key = annotations[index]->key();
  std::size_t slot = hash & mask;
  for (; keySlots_[slot] != 0; slot = (slot + 1) & mask) {
    const std::size_t seen = keySlots_[slot] - 1;
    if (keyHashes_[seen] == hash && sameKeyAsWritten(annotations[seen]->key(), key)) {
      return false;
    }
  }
  keySlots_[slot] = static_cast<std::uint32_t>(index + 1);
  return true;
}

// Keeps the last tag of a key as it may leave, scrubbed in the same visit to its memory. Of the
// tags kept, one at most has the request URL's key.
void QENSpanReading::keepTag(const BinaryAnnotation& tag) {
  const BinaryAnnotation* kept = scrubber_.isActive() ? scrubber_.scrubbed(tag, ownTags_) : &tag;
  if (kept == nullptr)
    return;
  if (kept->key() == performance_tracing_clientConstants::ENDPOINT_ID() &&
      kept->annotation_type() == AnnotationType::STRING) {
    requestURL_ = kept;  // whole: a cut URL still names its host
  }
  tags_.push_back(cutsValuesAsKept_ ? withValueCut(kept) : kept);
}

// The tag, or its copy with the value cut to the cap, counted.
const QENSpanReading::BinaryAnnotation* QENSpanReading::withValueCut(const BinaryAnnotation* tag) {
  const std::ptrdiff_t length = cappedLength(*tag, maximumValueBytes_);
  if (length == 0) {
    return tag;
  }
  ++truncatedValues_;
  const auto& bytes = *tag->value();
  return &ownTags_.emplace_back(tag->key(),
                                BinaryAnnotation::Bytes(bytes.begin(), bytes.begin() + length),
                                tag->annotation_type(), tag->host());
}

void QENSpanReading::readRemoteService() {
  remoteServiceName_.clear();
  if (requestURL_ == nullptr)
    return;
  const auto& bytes = *requestURL_->value();
  const auto url =
      QENURL::URLWithString({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
  if (url != nullptr) {
    remoteServiceName_ = asciiLowerCase(url->host());
  }
}

void QENSpanReading::capTags() {
  using Vocabulary = QENThrift::BinaryAnnotationQENAdditions;
  std::size_t dropped = 0;
  if (tags_.size() > maximumTags_) {  // the host's last tags go first, the library's never
    const auto own = static_cast<std::size_t>(std::count_if(
        tags_.begin(), tags_.end(), [](const auto* tag) { return isLibraryTag(tag->key()); }));
    std::size_t hostRoom = maximumTags_ - std::min(own, maximumTags_);
    std::erase_if(tags_, [&](const BinaryAnnotation* tag) {
      if (isLibraryTag(tag->key())) {
        return false;
      }
      if (hostRoom > 0) {
        --hostRoom;
        return false;
      }
      ++dropped;
      return true;
    });
  }
  if (!cutsValuesAsKept_) {
    std::transform(tags_.begin(), tags_.end(), tags_.begin(),
                   [this](const BinaryAnnotation* tag) { return withValueCut(tag); });
  }
  const std::int64_t truncated = truncatedValues_ + (truncatedName_ ? 1 : 0);
  for (const auto& [key, count] :
       {std::pair{"qen.dropped_tags", static_cast<std::int64_t>(dropped)},
        std::pair{"qen.truncated_values", truncated}}) {
    if (count > 0) {
      tags_.push_back(&ownTags_.emplace_back(*Vocabulary::annotationWithKeyInt64(key, count)));
    }
  }
}

std::string_view QENSpanReading::tagText(const BinaryAnnotation& tag, std::string& scratch) {
  const BinaryAnnotation::Bytes& bytes = *tag.value();
  switch (tag.annotation_type()) {
    case AnnotationType::BOOL:
      return bytes[0] != std::byte{0} ? "true" : "false";
    case AnnotationType::I16:
      return decimal<std::int16_t>(bigEndian(bytes), scratch);
    case AnnotationType::I32:
      return decimal<std::int32_t>(bigEndian(bytes), scratch);
    case AnnotationType::I64:
      return decimal<std::int64_t>(bigEndian(bytes), scratch);
    case AnnotationType::DOUBLE:  // rare
      return doubleText(std::bit_cast<double>(bigEndian(bytes)), scratch);
    case AnnotationType::STRING:
      return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
    case AnnotationType::BYTES:
    default:
      scratch.clear();
      appendBase64(scratch, bytes);
      return scratch;
  }
}
