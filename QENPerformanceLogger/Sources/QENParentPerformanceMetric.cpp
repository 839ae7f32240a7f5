#include "QENParentPerformanceMetric.h"

#include <mutex>

#include "QENFoundation/QENLockGuard.h"

QENParentPerformanceMetric::QENParentPerformanceMetric(ConstructionKey key, std::string name,
                                                       double uploadFraction,
                                                       bool shouldObserveMetricWillStart,
                                                       bool shouldPostMetricWillStart)
    : QENPerformanceMetric(key, std::move(name), uploadFraction, shouldObserveMetricWillStart,
                           shouldPostMetricWillStart) {}

void QENParentPerformanceMetric::addTracedURL(const std::shared_ptr<const QENURL>& url) {
  if (url == nullptr) {
    return;
  }
  const QENLockGuard guard(propertyLock());
  urlsToTrace_.insert(url->absoluteString());
}

bool QENParentPerformanceMetric::shouldIncludeTraceIdForURL(
    const std::shared_ptr<const QENURL>& url) const {
  if (url == nullptr) {
    return false;
  }
  const QENLockGuard guard(propertyLock());
  return urlsToTrace_.contains(url->absoluteString());
}

std::int64_t QENParentPerformanceMetric::parentSpanIdForURL(
    const std::shared_ptr<const QENURL>&) const {
  return spanId();
}
