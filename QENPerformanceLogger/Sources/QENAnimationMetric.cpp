#include "QENAnimationMetric.h"

#include "BinaryAnnotation+QENAdditions.h"
#include "QENAssert.h"

QENAnimationMetric::QENAnimationMetric(ConstructionKey key, std::string name, double uploadFraction,
                                       bool shouldObserveMetricWillStart,
                                       bool shouldPostMetricWillStart)
    : QENPerformanceMetric(key, std::move(name), uploadFraction, shouldObserveMetricWillStart,
                           shouldPostMetricWillStart) {}

bool QENAnimationMetric::hasValidEvents() const {
  return smallDropEvents() != kUnsetCount && largeDropEvents() != kUnsetCount &&
         totalFramesDropped() != kUnsetCount && totalFramesRendered() != kUnsetCount;
}

void QENAnimationMetric::stopMetricWithTime(double stopTime) {
  if (!hasValidEvents()) {
    QENAssertionFailure("-[QENAnimationMetric stopMetricWithTime:]",
                        "Ended without setting smallDropEvents, largeDropEvents or droppedFrames");
    invalidateWithReason(QENPerformanceMetricStopReasonUnknown);
    return;
  }
  using QENThrift::BinaryAnnotationQENAdditions;
  const std::pair<const char*, std::int64_t> counts[] = {
      {"small_frame_drop_count", smallDropEvents()},
      {"large_frame_drop_count", largeDropEvents()},
      {"total_frames_dropped", totalFramesDropped()},
      {"total_frames_rendered", totalFramesRendered()},
  };
  for (const auto& [key, count] : counts) {
    addBinaryAnnotation(BinaryAnnotationQENAdditions::annotationWithKeyInt16(
        key, static_cast<std::int16_t>(count)));
  }
  QENPerformanceMetric::stopMetricWithTime(stopTime);
}
