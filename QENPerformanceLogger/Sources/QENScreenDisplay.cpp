#include "QENScreenDisplay.h"

#include <cmath>
#include <string>

#include "BinaryAnnotation+QENAdditions.h"
#include "QENAssert.h"
#include "QENFrameMonitor.h"
#include "QENPerformanceMetric.h"

std::shared_ptr<QENScreenDisplay> QENScreenDisplay::track(
    const std::shared_ptr<QENPerformanceMetric>& screen, double creationTime,
    double fullDisplayTimeout) {
  const bool valid = screen != nullptr && std::isfinite(creationTime) &&
                     std::isfinite(fullDisplayTimeout) && fullDisplayTimeout > 0;
  QENParameterAssert(valid, "screen && isfinite(creationTime) && fullDisplayTimeout > 0",
                     "-[QENScreenDisplay trackScreen:creationTime:fullDisplayTimeout:]");
  if (!valid) {
    return nullptr;
  }
  auto display = std::make_shared<QENScreenDisplay>(screen, creationTime, fullDisplayTimeout);
  QENFrameMonitor::shared().addListener(display);
  return display;
}

QENScreenDisplay::QENScreenDisplay(const std::shared_ptr<QENPerformanceMetric>& screen,
                                   double creationTime, double fullDisplayTimeout)
    : screen_(screen),
      creationTime_(creationTime),
      fullDisplayDeadline_(creationTime + fullDisplayTimeout) {}

void QENScreenDisplay::reportFullyDrawn(double time) {
  const std::lock_guard guard(mutex_);
  timeOutFullDisplayIfDue(time);
  if (fullyDrawnTime_ || fullDisplayEnded_) {
    return;
  }
  fullyDrawnTime_ = time;
}

bool QENScreenDisplay::frameDrawn(double startTime, double endTime) {
  const std::lock_guard guard(mutex_);
  timeOutFullDisplayIfDue(startTime);
  if (!initialDisplayEnded_ && startTime >= creationTime_) {
    endInitialDisplay(endTime);
    if (fullyDrawnTime_) {  // said before the screen first showed
      endFullDisplay(endTime, false);
    }
  } else if (initialDisplayEnded_ && fullyDrawnTime_ && startTime >= *fullyDrawnTime_) {
    endFullDisplay(endTime, false);
  }
  return !(initialDisplayEnded_ && fullDisplayEnded_);
}

void QENScreenDisplay::timeOutFullDisplayIfDue(double now) {
  if (!fullDisplayEnded_ && now > fullDisplayDeadline_) {
    endFullDisplay(fullDisplayDeadline_, true);
  }
}

void QENScreenDisplay::endInitialDisplay(double endTime) {
  initialDisplayEnded_ = true;
  if (const auto screen = screen_.lock()) {
    screen->addChildMetric(QENPerformanceMetric::initLeafMetricWithName(
        std::string(kInitialDisplayName), creationTime_, endTime));
  }
}

void QENScreenDisplay::endFullDisplay(double endTime, bool timedOut) {
  fullDisplayEnded_ = true;
  const auto screen = screen_.lock();
  if (screen == nullptr) {
    return;
  }
  auto span = QENPerformanceMetric::initLeafMetricWithName(std::string(kFullDisplayName),
                                                           creationTime_, endTime);
  if (timedOut) {
    span->addBinaryAnnotation(QENThrift::BinaryAnnotationQENAdditions::annotationWithKeyString(
        std::string(kStopReasonKey), "timeout"));
  }
  screen->addChildMetric(std::move(span));
}
