#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "QENSpanScrubber.h"
#include "QENThrift/Span.h"

enum class QENSpanKind { kUnspecified, kClient };

struct QENSpanReadingOptions {
  // The service every span belongs to: Zipkin's local endpoint, OpenTelemetry's service.name.
  // Lower-cased, as Zipkin stores service names. Empty: the platform the library runs on
  // (QENDevice::platformName(): "android" on Android, "ios" on iOS, ...).
  std::string serviceName;
  // What is taken out of the tags before any encoder, the spool or the watcher sees them.
  QENSpanScrubbingOptions scrubbing{};
  // Past this many tags the host's later ones are left out, counted in a "qen.dropped_tags" tag;
  // the library's own (user wait, app, device, network, request and "lc") always stay. At least
  // 1: a value below is read as 1 (a reporter also reports it).
  std::size_t maximumTagsPerSpan = 64;
  // A longer string or bytes value, or span name, is cut to this many bytes (text at a
  // character's start), counted in a "qen.truncated_values" tag. At least 16, as above.
  std::size_t maximumTagValueBytes = 4096;
};

// How a tracing backend is to see one exported span. Every encoder writes spans through this one
// reading, so that the formats cannot disagree on a span's service, kind, endpoints, times and
// tags. The spans themselves stay exactly as the library made them; only their reading changes.
//
// - Kind: a span is a CLIENT span only when it measured a network request, that is when it
//   carries the request's URL ("endpoint_id", which the endpoint metric and the image download
//   manager add). The URL's host, lower-cased, is then its remote service. Every other span
//   (start-up tasks, rendering, image display) has no kind.
// - Times are microseconds since the Unix epoch. A value that is not positive, or lies past the
//   year 2262 (where nanoseconds no longer fit 64 bits), is not a time and is left out. So the
//   client-send and client-receive annotations, which the library saturates at the largest
//   64-bit value, can never become a timestamp.
// - Events: the annotations with a time, but client-send and client-receive, which only mark the
//   span's own start and end.
// - Tags: the binary annotations whose value has a length its type allows; of repeated keys, the
//   last counts. The local component ("lc") is a tag like any other, as Zipkin converts it.
//   Then they are scrubbed (QENSpanScrubber): what the scrubbing changes is what every format
//   writes, and a request URL it drops takes the span's kind with it. Then they are capped in
//   count and value size, with a tag that counts what the caps took.
class QENSpanReading {
 public:
  using Annotation = QENThrift::Annotation;
  using BinaryAnnotation = QENThrift::BinaryAnnotation;

  explicit QENSpanReading(const QENSpanReadingOptions& options = {});
  // The tags may point into the reading's own storage, which a copy would not share.
  QENSpanReading(const QENSpanReading&) = delete;
  QENSpanReading& operator=(const QENSpanReading&) = delete;
  QENSpanReading(QENSpanReading&&) noexcept = default;
  QENSpanReading& operator=(QENSpanReading&&) noexcept = default;

  // Reads `span`, which must outlive the reading's use; the accessors describe it until the next
  // read. One reading serves any number of spans in turn, reusing its memory.
  void read(const QENThrift::Span& span);
  // Reads each span that is there in turn and hands the reading to `write`.
  template <class Write>
  void readEach(std::span<const std::shared_ptr<QENThrift::Span>> spans, const Write& write) {
    for (const auto& span : spans) {
      if (span != nullptr) {
        read(*span);
        write(*this);
      }
    }
  }

  const std::string& serviceName() const noexcept { return serviceName_; }
  const QENSpanScrubber& scrubber() const noexcept { return scrubber_; }
  const QENThrift::Span& span() const noexcept { return *span_; }
  // The span's name, scrubbed, and cut as a tag's value is (counted with them).
  std::string_view name() const noexcept {
    return scrubbedName_ ? std::string_view(*scrubbedName_) : std::string_view(span_->name());
  }
  // The parent's span id when it is set and not zero.
  std::optional<std::int64_t> parentId() const noexcept { return parentId_; }
  std::optional<std::int64_t> timestamp() const noexcept { return timestamp_; }
  // Present only with the timestamp, and when the span's end is also a time.
  std::optional<std::int64_t> duration() const noexcept { return duration_; }
  QENSpanKind kind() const noexcept {
    return remoteServiceName_.empty() ? QENSpanKind::kUnspecified : QENSpanKind::kClient;
  }
  // The host the request went to, lower-cased; "" for a span of no kind.
  const std::string& remoteServiceName() const noexcept { return remoteServiceName_; }
  std::span<const Annotation* const> events() const noexcept { return events_; }
  std::span<const BinaryAnnotation* const> tags() const noexcept { return tags_; }

  // Whether a number of microseconds since the Unix epoch is a time (see above).
  static bool isTime(std::int64_t microseconds) noexcept;
  // Whether a binary annotation has a value of a length its type allows, so that it is a tag.
  static bool hasReadableValue(const BinaryAnnotation& annotation) noexcept;
  static constexpr std::size_t kLeastTagsPerSpan = 1;
  static constexpr std::size_t kLeastTagValueBytes = 16;
  // A tag's value as text, as Zipkin's v1-to-v2 conversion writes it: booleans "true" or
  // "false", integers in decimal, doubles in the shortest form that reads back, strings as they
  // are, bytes in base64. The result may point into `scratch`.
  static std::string_view tagText(const BinaryAnnotation& tag, std::string& scratch);

 private:
  void readTimes(const QENThrift::Span& span);
  void readEvents(const QENThrift::Span& span);
  void readTags(const QENThrift::Span& span);
  // Up to this many, tags are compared pair by pair: no allocation, and faster than hashing.
  static constexpr std::size_t kLargestPairwiseTagList = 32;
  void keepLastOfEachKey(const QENThrift::Span::BinaryAnnotationList& annotations);
  void hashKey(const QENThrift::Span::BinaryAnnotationList& annotations, std::size_t index);
  bool isFirstSighting(const QENThrift::Span::BinaryAnnotationList& annotations, std::size_t index,
                       std::size_t mask);
  void keepTag(const BinaryAnnotation& tag);
  const BinaryAnnotation* withValueCut(const BinaryAnnotation* tag);
  void readRemoteService();
  void capTags();

  std::string serviceName_;
  QENSpanScrubber scrubber_;
  std::size_t maximumTags_;
  std::size_t maximumValueBytes_;
  const QENThrift::Span* span_ = nullptr;
  std::optional<std::string> scrubbedName_;  // scrubbed or capped
  bool truncatedName_ = false;
  std::optional<std::int64_t> parentId_;
  std::optional<std::int64_t> timestamp_;
  std::optional<std::int64_t> duration_;
  std::string remoteServiceName_;
  std::vector<const Annotation*> events_;
  std::vector<const BinaryAnnotation*> tags_;
  const BinaryAnnotation* requestURL_ = nullptr;  // the kept tag of the request's URL
  bool cutsValuesAsKept_ = false;
  std::int64_t truncatedValues_ = 0;
  // For spans of many tags: 32 bits of the hash of each tag's key, and an open-addressing table of
  // the keys seen, each slot one more than the place in the span's list of the tag that has the
  // key (0 for a free slot). Four bytes a slot keep the table of thousands of tags in cache.
  std::vector<std::uint32_t> keyHashes_;
  std::vector<std::uint32_t> keySlots_;
  // What tags_ points to where scrubbing or a cap changed a tag, or a cap added one.
  std::deque<BinaryAnnotation> ownTags_;
};
