#pragma once

#include <memory>

#include "QENURLLoading/QENURL.h"

// Adopted by a metric whose request carries trace headers: its exported span id is the one
// drawn for this URL with generateAndStoreSpanIdForURL, so that the server's spans join it. A
// metric that adopts it also overrides QENPerformanceMetric::asTraceHeaderSender to return
// itself: the library recognises adopters without run-time type information.
class QENPerformanceSendsTraceInHeader {
 public:
  virtual ~QENPerformanceSendsTraceInHeader() = default;
  // The URL the traced request went to.
  virtual std::shared_ptr<const QENURL> urlHeaderSentTo() const = 0;
};
