#pragma once

#include <atomic>
#include <cstdint>
#include <limits>
#include <string>

#include "QENPerformanceMetric.h"

// A metric for one animation or one stretch of scrolling. The host stores the four frame counts
// before it stops the metric; the stop turns them into 16-bit binary annotations (only the low
// 16 bits of each count survive, read as signed: the wire width of these keys). A metric stopped
// with a count never set is reported and invalidated (reason Unknown) instead of stopped.
class QENAnimationMetric : public QENPerformanceMetric,
                           public QENPerformanceMetricFactories<QENAnimationMetric> {
 public:
  using QENPerformanceMetricFactories<QENAnimationMetric>::initWithName;
  using QENPerformanceMetricFactories<QENAnimationMetric>::initLeafMetricWithName;
  using QENPerformanceMetricFactories<QENAnimationMetric>::createWithName;

  // A count that was never set.
  static constexpr std::int64_t kUnsetCount = std::numeric_limits<std::int64_t>::max();

  QENAnimationMetric(ConstructionKey key, std::string name, double uploadFraction,
                     bool shouldObserveMetricWillStart, bool shouldPostMetricWillStart);

  void stopMetricWithTime(double stopTime) override;
  // Whether all four counts were set (zero and negative counts are valid).
  bool hasValidEvents() const;

  std::int64_t smallDropEvents() const { return smallDropEvents_.load(std::memory_order_relaxed); }
  void setSmallDropEvents(std::int64_t count) {
    smallDropEvents_.store(count, std::memory_order_relaxed);
  }
  std::int64_t largeDropEvents() const { return largeDropEvents_.load(std::memory_order_relaxed); }
  void setLargeDropEvents(std::int64_t count) {
    largeDropEvents_.store(count, std::memory_order_relaxed);
  }
  std::int64_t totalFramesDropped() const {
    return totalFramesDropped_.load(std::memory_order_relaxed);
  }
  void setTotalFramesDropped(std::int64_t count) {
    totalFramesDropped_.store(count, std::memory_order_relaxed);
  }
  std::int64_t totalFramesRendered() const {
    return totalFramesRendered_.load(std::memory_order_relaxed);
  }
  void setTotalFramesRendered(std::int64_t count) {
    totalFramesRendered_.store(count, std::memory_order_relaxed);
  }

 private:
  std::atomic<std::int64_t> smallDropEvents_{kUnsetCount};
  std::atomic<std::int64_t> largeDropEvents_{kUnsetCount};
  std::atomic<std::int64_t> totalFramesDropped_{kUnsetCount};
  std::atomic<std::int64_t> totalFramesRendered_{kUnsetCount};
};
