#pragma once

#include <memory>
#include <span>
#include <string>

#include "QENSpanReading.h"
#include "QENThrift/Span.h"

// Encodes spans as OpenTelemetry's collector takes them over HTTP (POST /v1/traces,
// application/json): one ExportTraceServiceRequest in OTLP's JSON form, with one resource
// (service.name, os.type, telemetry.sdk.name, .language and .version) and one scope, and the
// spans as QENSpanReading reads them.
//
// - traceId is 32 hex digits, the 64-bit trace id in the low half; spanId and parentSpanId 16.
// - kind is 3 (CLIENT) for a network request's span, whose host is also its "server.address"
//   attribute; other spans leave kind out (unspecified).
// - Times are Unix nanoseconds as decimal strings; a span without a time leaves them out, and
//   its end is its start when it has no duration.
// - Tags become typed attributes: booleans, integers (as decimal strings), doubles (NaN and the
//   infinities as the strings "NaN", "Infinity", "-Infinity"), strings, bytes in base64.
// - Events keep their names and times.
class QENOTLPJSONEncoder {
 public:
  static std::string encodeSpans(std::span<const std::shared_ptr<QENThrift::Span>> spans,
                                 const QENSpanReadingOptions& options = {});

  // The same bytes a span at a time, for a reporter that sizes a batch by its spans' encoded
  // bytes and then sends those bytes: frameSpans of each span's encodeSpan, in order, is exactly
  // encodeSpans of the spans.
  static std::string encodeSpan(const QENThrift::Span& span,
                                const QENSpanReadingOptions& options = {});
  static std::string frameSpans(std::span<const std::string> encodedSpans,
                                const QENSpanReadingOptions& options = {});
};
