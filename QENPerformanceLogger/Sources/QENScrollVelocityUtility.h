#pragma once

#include <concepts>
#include <functional>
#include <limits>
#include <memory>
#include <vector>

#include "QENScrollVelocityEventObserver.h"

// Measures how fast a view's content moves vertically while the user scrolls, and reports each
// velocity (and each scroll's start and end) to its observers.
//
// The host forwards three events: scrollingStarted, scrollViewDidScroll (with anything that
// gives its vertical content offset) and scrollingStopped. A velocity is the distance from the
// reference point over the time since it; the reference point moves, and last/min/max are
// updated, only when the distance reaches the threshold, so slow drags are measured over a
// longer stretch. Every event reports its velocity before that test.
//
// Not thread-safe: use it from the thread that delivers the scroll events. Observers are held
// weakly; a destroyed one is skipped.
class QENScrollVelocityUtility {
 public:
  using Clock = std::function<double()>;
  static constexpr double kResetMinimum = std::numeric_limits<double>::max();
  // The smallest positive double, not the most negative: velocities are never negative.
  static constexpr double kResetMaximum = std::numeric_limits<double>::min();

  // A new utility with threshold 0 (every event moves the reference point).
  static std::unique_ptr<QENScrollVelocityUtility> scrollVelocityUtility();
  // `clock` reads monotonic seconds (QENMonotonicTimeGetCurrent unless a test gives its own).
  explicit QENScrollVelocityUtility(double offsetThreshold, Clock clock = nullptr);

  void scrollingStarted();
  void scrollingStopped();
  template <class ScrollView>
  requires requires(const ScrollView& view) {
    { view.contentOffsetY() } -> std::convertible_to<double>;
  }
  void scrollViewDidScroll(const ScrollView& view) {
    scrollViewDidScrollWithOffset([&view] { return static_cast<double>(view.contentOffsetY()); });
  }
  void addEventObserver(const std::shared_ptr<QENScrollVelocityEventObserver>& observer);
  void resetScrollVelocity();

  bool isScrolling() const { return isScrolling_; }
  void setIsScrolling(bool scrolling) { isScrolling_ = scrolling; }
  double lastScrollVelocity() const { return lastScrollVelocity_; }
  void setLastScrollVelocity(double velocity) { lastScrollVelocity_ = velocity; }
  double minScrollVelocity() const { return minScrollVelocity_; }
  void setMinScrollVelocity(double velocity) { minScrollVelocity_ = velocity; }
  double maxScrollVelocity() const { return maxScrollVelocity_; }
  void setMaxScrollVelocity(double velocity) { maxScrollVelocity_ = velocity; }
  double lastScrollContentOffsetY() const { return lastScrollContentOffsetY_; }
  void setLastScrollContentOffsetY(double offset) { lastScrollContentOffsetY_ = offset; }
  double lastScrollTime() const { return lastScrollTime_; }
  void setLastScrollTime(double time) { lastScrollTime_ = time; }
  // Spelled so on purpose: the name is part of the interface.
  double scrollVelocityOffsetThresold() const { return scrollVelocityOffsetThresold_; }
  void setScrollVelocityOffsetThresold(double threshold) {
    scrollVelocityOffsetThresold_ = threshold;
  }
  const std::vector<std::weak_ptr<QENScrollVelocityEventObserver>>& eventObservers() const {
    return eventObservers_;
  }

 private:
  void scrollViewDidScrollWithOffset(const std::function<double()>& readContentOffsetY);
  template <class Report>
  void notifyObservers(const Report& report);

  bool isScrolling_ = false;
  double lastScrollVelocity_ = 0.0;
  double minScrollVelocity_ = kResetMinimum;
  double maxScrollVelocity_ = kResetMaximum;
  double lastScrollContentOffsetY_ = 0.0;
  double lastScrollTime_ = -1.0;
  double scrollVelocityOffsetThresold_;
  std::vector<std::weak_ptr<QENScrollVelocityEventObserver>> eventObservers_;
  Clock clock_;
};
