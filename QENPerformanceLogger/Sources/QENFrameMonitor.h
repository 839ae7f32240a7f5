#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "QENFrameListener.h"

// Counts of the frames reported so far, in the order they were reported. A metric keeps the tally
// of its start and reads the one of its stop: what came between is what it saw.
struct QENFrameTally {
  std::uint64_t total = 0;
  std::uint64_t slow = 0;
  std::uint64_t frozen = 0;
  std::uint64_t longFrames = 0;  // slow and frozen together: where the record of them stands
  double delay = 0;              // seconds past the frames' expected intervals, slow and frozen
};

// What a metric saw of the frames drawn while it ran.
struct QENFrameStatistics {
  std::uint64_t total = 0;
  std::uint64_t slow = 0;
  std::uint64_t frozen = 0;
  double delay = 0;  // seconds
};

// The frames the host draws, as it reports them, and what each running metric saw of them. A
// frame is slow when it runs past its expected interval (from the display's refresh rate at that
// frame) by more than the slow-frame tolerance, and frozen when it takes 700 ms or more; frozen
// frames are not counted as slow. Its delay is the time it ran past its expected interval.
//
// Reporting a frame costs the same however many metrics run: it adds to one tally, and a slow or
// frozen frame goes into a bounded record of the latest ones. A metric's statistics are the
// difference of two tallies, corrected at the edges from that record: a slow or frozen frame that
// straddles the metric's start or stop gives it only the delay inside the metric, and one outside
// it entirely (reported late) none of its counts. Frames on time are counted by when they were
// reported.
class QENFrameMonitor {
 public:
  static constexpr double kFrozenFrameDuration = 0.7;
  static constexpr double kDefaultSlowFrameTolerance = 0.001;
  // How many slow and frozen frames the record keeps, for the edges of the metrics running.
  static constexpr std::size_t kLongFrameRecordSize = 64;

  // The process's monitor, which metrics consult.
  static QENFrameMonitor& shared();

  // One frame drawn: its start on the library's monotonic clock (QENMonotonicTimeGetCurrent), how
  // long it took and the interval the display expected of it, in seconds. A frame whose times
  // are not finite, or whose duration or expected interval is not above 0, is reported through
  // the assertion facility and left out.
  void reportFrame(double startTime, double duration, double expectedInterval);

  // Tells the listener of every frame reported from now on, until it says it waits no more.
  // Frames cost nothing more while no listener waits.
  void addListener(std::shared_ptr<QENFrameListener> listener);

  // At least 0; 1 ms by default, so that a frame a hair over its interval (timing jitter) is not
  // counted as slow.
  void setSlowFrameTolerance(double seconds);

  // Whether any frame was reported: until then a metric starting needs no tally.
  bool isReporting() const noexcept { return reporting_.load(std::memory_order_relaxed); }
  QENFrameTally tally() const;
  // What a metric that started at `startTime` with the tally `atStart` saw by `stopTime`.
  QENFrameStatistics statisticsSince(const QENFrameTally& atStart, double startTime,
                                     double stopTime) const;

 private:
  struct LongFrame {
    double start = 0;
    double end = 0;
    double delayStart = 0;  // where the frame passed its expected interval
    bool frozen = false;
  };

  void count(double startTime, double duration, double expectedInterval);  // under mutex_
  static void correctForEdge(const LongFrame& frame, double startTime, double stopTime,
                             QENFrameStatistics& statistics);

  std::atomic<bool> reporting_{false};
  mutable std::mutex mutex_;
  QENFrameTally tally_;
  double slowFrameTolerance_ = kDefaultSlowFrameTolerance;
  std::array<LongFrame, kLongFrameRecordSize> longFrames_{};  // the n-th at n % size
  std::vector<std::shared_ptr<QENFrameListener>> listeners_;
};
