#pragma once

#include <memory>
#include <span>
#include <string>

#include "QENThrift/Span.h"

// Encodes spans in the Chrome trace-event format, so that a local run opens in Perfetto or
// chrome://tracing: one complete event ("ph": "X") per span, on the track of its depth in the
// tree (the top-level span on track 0), with its ids and binary annotations as arguments, and
// one instant event per timestamped annotation. Client-send and client-receive are left out
// (the span's own times say the same).
class QENChromeTraceEncoder {
 public:
  static std::string encodeSpans(std::span<const std::shared_ptr<QENThrift::Span>> spans);
};
