#pragma once

#include <memory>
#include <set>
#include <string>

#include "QENPerformanceMetric.h"
#include "QENPerformanceSendsSubspans.h"

// A metric under which requests are traced: it keeps the URLs whose requests are to carry B3
// headers, and is their parent span. URLs are only ever added; they stay traced after the
// metric stops.
class QENParentPerformanceMetric
    : public QENPerformanceMetric,
      public QENPerformanceSendsSubspans,
      public QENPerformanceMetricFactories<QENParentPerformanceMetric> {
 public:
  using QENPerformanceMetricFactories<QENParentPerformanceMetric>::initWithName;
  using QENPerformanceMetricFactories<QENParentPerformanceMetric>::initLeafMetricWithName;
  using QENPerformanceMetricFactories<QENParentPerformanceMetric>::createWithName;

  QENParentPerformanceMetric(ConstructionKey key, std::string name, double uploadFraction,
                             bool shouldObserveMetricWillStart, bool shouldPostMetricWillStart);

  // An absent URL is ignored.
  void addTracedURL(const std::shared_ptr<const QENURL>& url);
  // Whether the URL (or an equal one) was added; never for an absent URL.
  bool shouldIncludeTraceIdForURL(const std::shared_ptr<const QENURL>& url) const override;
  // This metric's span id, whatever the URL.
  std::int64_t parentSpanIdForURL(const std::shared_ptr<const QENURL>& url) const override;

 private:
  std::set<std::string, std::less<>> urlsToTrace_
      QEN_GUARDED_BY(propertyLock());  // absoluteStrings
};
