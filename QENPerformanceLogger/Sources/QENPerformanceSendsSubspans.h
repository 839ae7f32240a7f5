#pragma once

#include <cstdint>
#include <memory>

#include "QENURLLoading/QENURL.h"

// Adopted by a metric under which requests are traced: it tells which URLs carry trace headers
// and what their parent span id is.
class QENPerformanceSendsSubspans {
 public:
  virtual ~QENPerformanceSendsSubspans() = default;
  virtual bool shouldIncludeTraceIdForURL(const std::shared_ptr<const QENURL>& url) const = 0;
  virtual std::int64_t parentSpanIdForURL(const std::shared_ptr<const QENURL>& url) const = 0;
};
