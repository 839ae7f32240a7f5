#pragma once

#include <memory>
#include <span>
#include <string>

#include "QENSpanReading.h"
#include "QENThrift/Span.h"

// Encodes spans as the Zipkin v2 API takes them (POST /api/v2/spans, application/json): a JSON
// array of span objects, each as QENSpanReading reads it.
//
// - Ids are 16 lower-case hex digits; parentId only when set and not zero.
// - timestamp and duration are microseconds, written when the reading has them.
// - Every span has a localEndpoint named after the service; a network request's span is of kind
//   CLIENT, with the request's host as remoteEndpoint's serviceName.
// - Annotations are the reading's events; tags its tags, as text.
// - Invalid UTF-8 in any string is replaced (U+FFFD); control characters are escaped.
class QENZipkinV2JSONEncoder {
 public:
  static std::string encodeSpans(std::span<const std::shared_ptr<QENThrift::Span>> spans,
                                 const QENSpanReadingOptions& options = {});

  // The same bytes a span at a time, for a reporter that sizes a batch by its spans' encoded
  // bytes and then sends those bytes: frameSpans of each span's encodeSpan, in order, is exactly
  // encodeSpans of the spans.
  static std::string encodeSpan(const QENThrift::Span& span,
                                const QENSpanReadingOptions& options = {});
  static std::string frameSpans(std::span<const std::string> encodedSpans);
};
