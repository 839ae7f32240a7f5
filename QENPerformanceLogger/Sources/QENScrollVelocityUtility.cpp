#include "QENScrollVelocityUtility.h"

#include <algorithm>
#include <cmath>

#include "QENFoundation/QENMonotonicTime.h"

template <class Report>
void QENScrollVelocityUtility::notifyObservers(const Report& report) {
  // A snapshot: an observer may add observers while it is told.
  const auto observers = eventObservers_;
  for (const auto& weakObserver : observers) {
    if (const auto observer = weakObserver.lock()) {
      report(*observer);
    }
  }
}

std::unique_ptr<QENScrollVelocityUtility> QENScrollVelocityUtility::scrollVelocityUtility() {
  return std::make_unique<QENScrollVelocityUtility>(0.0);
}

QENScrollVelocityUtility::QENScrollVelocityUtility(double offsetThreshold, Clock clock)
    : scrollVelocityOffsetThresold_(offsetThreshold),
      clock_(clock ? std::move(clock) : Clock(QENMonotonicTimeGetCurrent)) {}

void QENScrollVelocityUtility::resetScrollVelocity() {
  lastScrollTime_ = -1.0;
  minScrollVelocity_ = kResetMinimum;
  maxScrollVelocity_ = kResetMaximum;
  lastScrollVelocity_ = 0.0;
}

void QENScrollVelocityUtility::scrollingStarted() {
  isScrolling_ = true;
  resetScrollVelocity();
  notifyObservers([this](QENScrollVelocityEventObserver& observer) {
    observer.scrollVelocityUtilityScrollViewDidStartScrolling(*this);
  });
}

void QENScrollVelocityUtility::scrollingStopped() {
  isScrolling_ = false;
  resetScrollVelocity();
  notifyObservers([this](QENScrollVelocityEventObserver& observer) {
    observer.scrollVelocityUtilityScrollViewDidStopScrolling(*this);
  });
}

void QENScrollVelocityUtility::addEventObserver(
    const std::shared_ptr<QENScrollVelocityEventObserver>& observer) {
  eventObservers_.push_back(observer);
}

void QENScrollVelocityUtility::scrollViewDidScrollWithOffset(
    const std::function<double()>& readContentOffsetY) {
  if (!isScrolling_) {
    return;
  }
  const double now = clock_();
  const double offsetY = readContentOffsetY();
  const auto report = [this](double velocity) {
    notifyObservers([this, velocity](QENScrollVelocityEventObserver& observer) {
      observer.scrollVelocityUtility(*this, velocity);
    });
  };
  if (lastScrollTime_ < 0) {  // the scroll's first event sets the reference point
    lastScrollContentOffsetY_ = offsetY;
    lastScrollTime_ = now;
    report(0.0);
    return;
  }
  const double elapsed = now - lastScrollTime_;
  if (!(elapsed > 0)) {
    return;
  }
  const double distance = std::fabs(offsetY - lastScrollContentOffsetY_);
  const double velocity = distance / elapsed;
  report(velocity);
  if (distance < scrollVelocityOffsetThresold_) {
    return;
  }
  lastScrollContentOffsetY_ = readContentOffsetY();
  lastScrollTime_ = now;
  minScrollVelocity_ = std::min(minScrollVelocity_, velocity);
  maxScrollVelocity_ = std::max(maxScrollVelocity_, velocity);
  lastScrollVelocity_ = velocity;
}
