// Span export: QENPerformanceMetric's Spans extension.
#include "QENFoundation/QENLockGuard.h"
#include "QENFoundation/QENRandom.h"
#include "QENPerformanceMetric.h"
#include "QENPerformanceSendsTraceInHeader.h"
#include "QENSpanExport.h"

QENPerformanceMetric::SpanList QENPerformanceMetric::spansWithAppContext(
    const QENPerformanceMetricAppContext& appContext) const {
  return QENSpanExport::spansOfTree(*this, appContext, std::nullopt);
}

QENPerformanceMetric::SpanList QENPerformanceMetric::snapshotSpansWithAppContext(
    const QENPerformanceMetricAppContext& appContext, double snapshotTime) const {
  return QENSpanExport::spansOfTree(*this, appContext, snapshotTime);
}

void QENPerformanceMetric::setParametersForTopLevel(
    bool isTopLevel, QENThrift::Span& span,
    const QENPerformanceMetricAppContext& appContext) const {
  QENSpanExport::fillSpan(*this, isTopLevel, span, appContext);
}

std::int64_t QENPerformanceMetric::generateAndStoreSpanIdForURL(
    const std::shared_ptr<const QENURL>& url) {
  std::int64_t spanId = 0;
  QENFoundation::arc4random_buf(&spanId, sizeof spanId);  // drawn outside the lock
  if (url == nullptr) {
    return spanId;  // nothing to keep it under
  }
  const QENLockGuard guard(propertyLock_);
  if (urlToSpanId_ == nullptr) {
    urlToSpanId_ = std::make_unique<std::unordered_map<std::string, std::int64_t>>();
  }
  urlToSpanId_->insert_or_assign(url->absoluteString(), spanId);
  return spanId;
}

std::int64_t QENPerformanceMetric::overriddenSpanId() const {
  const auto* sender = asTraceHeaderSender();
  if (sender == nullptr) {
    return 0;
  }
  const std::shared_ptr<const QENURL> url = sender->urlHeaderSentTo();
  if (url == nullptr) {
    return 0;
  }
  const QENLockGuard guard(propertyLock_);
  if (urlToSpanId_ == nullptr) {
    return 0;
  }
  const auto found = urlToSpanId_->find(url->absoluteString());
  return found == urlToSpanId_->end() ? 0 : found->second;
}
