// QENPerformanceMetric's Convenience extension: result, preload and app-lifecycle annotations.
#include "Annotation+QENAdditions.h"
#include "BinaryAnnotation+QENAdditions.h"
#include "QENAppLifecycleObservers.h"
#include "QENAssert.h"
#include "QENFoundation/QENMonotonicTime.h"
#include "QENPerformanceMetric.h"

namespace {

using QENThrift::AnnotationQENAdditions;
using QENThrift::BinaryAnnotationQENAdditions;

constexpr double kPreloadedMetricDuration = 0.001;

void addAnnotationNamedNow(QENPerformanceMetric& metric, std::string_view name) {
  metric.addAnnotation(
      AnnotationQENAdditions::annotationWithName(name, QENMonotonicTimeGetCurrent()));
}

}  // namespace

void QENPerformanceMetric::addResultAndInvalidationAnnotations() {
  const auto uwtNames = uwtMetricNames();
  QENAssert(uwtNames == nullptr || !uwtNames->contains(name_),
            "-[QENPerformanceMetric(Convenience) addResultAndInvalidationAnnotations]",
            "UWT metrics should rely on -[QENPerformanceMetric(Spans) "
            "setParametersForTopLevel:span:withAppContext:] to add these annotations. This "
            "intended for adding these to certain subspans as needed");
  const QENPerformanceMetricStopReason reason = invalidateReason();
  addBinaryAnnotation(BinaryAnnotationQENAdditions::uwtResultAnnotationWithStopReason(reason));
  auto resultReason = BinaryAnnotationQENAdditions::uwtResultReasonAnnotationWithStopReason(reason);
  QENAssert(resultReason != nullptr,
            "-[QENPerformanceMetric(Convenience) addResultAndInvalidationAnnotations]",
            "There should always be UWT result reason reported. It is an integer which should not "
            "result in a null.");
  if (resultReason) {
    addBinaryAnnotation(std::move(resultReason));
  }
  if (auto invalidateEvent =
          BinaryAnnotationQENAdditions::uwtInvalidateEventAnnotationWithInvalidatingQenLogEventType(
              static_cast<std::int32_t>(invalidatingQenLogEventType()), invalidatingEvent())) {
    addBinaryAnnotation(std::move(invalidateEvent));
  }
}

void QENPerformanceMetric::markMetricAsPreloaded() {
  const double now = QENMonotonicTimeGetCurrent();
  startMetricWithTime(now);
  stopMetricWithTime(now + kPreloadedMetricDuration);
  addAnnotation(AnnotationQENAdditions::annotationWithName("metric_preloaded", now));
}

void QENPerformanceMetric::configureAppLifecycleNotificationObservation() {
  const std::shared_ptr<QENPerformanceMetric> self = weak_from_this().lock();
  if (self == nullptr) {
    return;
  }
  observesAppLifecycle_.store(true, std::memory_order_relaxed);
  QENAppLifecycleObservers::shared().add(self);
}

void QENPerformanceMetric::removeAppLifecycleNotificationObservation() {
  QENAppLifecycleObservers::shared().remove(this);
}

void QENPerformanceMetric::appDidEnterBackground(const QENNotification&) {
  addAnnotationNamedNow(*this, "app.enter.background");
}

void QENPerformanceMetric::appWillResignActive(const QENNotification&) {
  addAnnotationNamedNow(*this, "app.resign.active");
}

void QENPerformanceMetric::appWillEnterForeground(const QENNotification&) {
  addAnnotationNamedNow(*this, "app.enter.foreground");
}

void QENPerformanceMetric::appDidBecomeActive(const QENNotification&) {
  addAnnotationNamedNow(*this, "app.become.active");
}

void QENPerformanceMetric::startMetricWithDate(const QENDate& startDate, const QENDate& stopDate) {
  startMetricWithTime(startDate.monotonicTime());
  stopMetricWithTime(stopDate.monotonicTime());
}
