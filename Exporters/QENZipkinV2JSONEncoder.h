#pragma once

#include <memory>
#include <span>
#include <string>

#include "QENThrift/Span.h"

// Encodes spans as the Zipkin v2 API takes them (POST /api/v2/spans, application/json): a JSON
// array of span objects.
//
// - Ids are 16 lower-case hex digits; parentId only when set and not zero.
// - timestamp and duration are microseconds, written when positive.
// - A span with both client-send ("cs") and client-receive ("cr") is of kind CLIENT; those two
//   become the kind and leave the annotation list.
// - The local-component binary annotation ("lc") names the localEndpoint's serviceName.
// - The other binary annotations become tags, converted as Zipkin converts v1 to v2: booleans
//   "true"/"false", integers in decimal, doubles in decimal, strings as they are, bytes in
//   base64. A value whose length does not fit its type, or that is absent, is left out.
// - Invalid UTF-8 in any string is replaced (U+FFFD); control characters are escaped.
class QENZipkinV2JSONEncoder {
 public:
  static std::string encodeSpans(std::span<const std::shared_ptr<QENThrift::Span>> spans);
};
