#pragma once

#include <memory>

#include "QENURLLoading/QENURL.h"

// Adopted by a metric whose request carries trace headers: its exported span id is the one
// drawn for this URL with generateAndStoreSpanIdForURL, so that the server's spans join it.
// Adopting it is enough: the metric factories see the adoption in the class they make.
class QENPerformanceSendsTraceInHeader {
 public:
  virtual ~QENPerformanceSendsTraceInHeader() = default;
  // The URL the traced request went to.
  virtual std::shared_ptr<const QENURL> urlHeaderSentTo() const = 0;
};
