#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "QENSpanReading.h"
#include "QENThrift/Span.h"

// Encodes spans as Zipkin v1 expects them over HTTP (POST /api/v1/spans with
// Content-Type application/x-thrift): a Thrift binary-protocol list of Span structs, with the
// field ids and types of Zipkin's core IDL. Null entries are skipped.
class QENZipkinThriftEncoder {
 public:
  enum class Form {
    // The spans byte for byte as the library made them, but for what the reading's scrubbing
    // takes out of their binary annotations. Optional fields that are not set (parent id,
    // timestamp, duration, annotation hosts, IPv6) and absent values are left out.
    kAsMade,
    // The spans as QENSpanReading reads them, written so that a v1 backend converts them to the
    // same v2 spans the v2 JSON encoder writes: timestamp and duration always set (0 where the
    // reading has none), the events with the service as their host, tags in place of the binary
    // annotations (the local component with the service as its host), each a string binary
    // annotation holding the v2 tag's text, as a v1 backend drops binary annotations of any other
    // type; and for a network span a client-send and a client-receive at its real start and end
    // and a server-address annotation naming the request's host. The saturated client-send and
    // client-receive are left out.
    kBackendSafe,
  };

  static std::vector<std::uint8_t> encodeSpans(
      std::span<const std::shared_ptr<QENThrift::Span>> spans, Form form = Form::kAsMade,
      const QENSpanReadingOptions& options = {});

  // The same bytes a span at a time, for a reporter that sizes a batch by its spans' encoded
  // bytes and then sends those bytes: frameSpans of each span's encodeSpan, in order, is exactly
  // encodeSpans of the spans.
  static std::string encodeSpan(const QENThrift::Span& span, Form form = Form::kAsMade,
                                const QENSpanReadingOptions& options = {});
  static std::vector<std::uint8_t> frameSpans(std::span<const std::string> encodedSpans);
  // The spans' bytes back from a framed list, so that a batch can be sent in parts; nullopt for
  // bytes that are no list of spans.
  static std::optional<std::vector<std::string>> unframeSpans(std::string_view framed);
};
