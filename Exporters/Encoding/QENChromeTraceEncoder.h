#pragma once

#include <memory>
#include <span>
#include <string>

#include "QENSpanReading.h"
#include "QENThrift/Span.h"

// Encodes spans in the Chrome trace-event format, so that a local run opens in Perfetto or
// chrome://tracing: the process named after the service, then per span, as QENSpanReading reads
// it, one complete event ("ph": "X") on the track of its depth in the tree (the top-level span
// on track 0) with its ids, kind, remote service and tags as arguments, and one instant event per
// event of the span. A span without a time is drawn at 0.
class QENChromeTraceEncoder {
 public:
  static std::string encodeSpans(std::span<const std::shared_ptr<QENThrift::Span>> spans,
                                 const QENSpanReadingOptions& options = {});
};
