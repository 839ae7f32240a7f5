#include "QENFrameMonitor.h"

#include <algorithm>
#include <cmath>

#include "QENAssert.h"

QENFrameMonitor& QENFrameMonitor::shared() {
  static auto* const monitor = new QENFrameMonitor();  // never destroyed: metrics outlive statics
  return *monitor;
}

void QENFrameMonitor::reportFrame(double startTime, double duration, double expectedInterval) {
  const bool valid = std::isfinite(startTime) && std::isfinite(duration) &&
                     std::isfinite(expectedInterval) && duration > 0 && expectedInterval > 0;
  QENParameterAssert(valid, "isfinite(startTime) && duration > 0 && expectedInterval > 0",
                     "-[QENFrameMonitor reportFrame:duration:expectedInterval:]");
  if (!valid) {
    return;
  }
  reporting_.store(true, std::memory_order_relaxed);
  std::vector<std::shared_ptr<QENFrameListener>> listeners;
  {
    const std::lock_guard guard(mutex_);
    count(startTime, duration, expectedInterval);
    listeners.swap(listeners_);
  }
  if (listeners.empty()) {
    return;
  }
  std::erase_if(listeners, [&](const auto& listener) {
    return !listener->frameDrawn(startTime, startTime + duration);
  });
  const std::lock_guard guard(mutex_);  // beside any listener added meanwhile
  listeners_.insert(listeners_.end(), listeners.begin(), listeners.end());
}

void QENFrameMonitor::count(double startTime, double duration, double expectedInterval) {
  ++tally_.total;
  const bool frozen = duration >= kFrozenFrameDuration;
  if (!frozen && duration <= expectedInterval + slowFrameTolerance_) {
    return;
  }
  ++(frozen ? tally_.frozen : tally_.slow);
  tally_.delay += duration - expectedInterval;
  longFrames_[tally_.longFrames++ % kLongFrameRecordSize] = {startTime, startTime + duration,
                                                             startTime + expectedInterval, frozen};
}

void QENFrameMonitor::addListener(std::shared_ptr<QENFrameListener> listener) {
  if (listener != nullptr) {
    const std::lock_guard guard(mutex_);
    listeners_.push_back(std::move(listener));
  }
}

void QENFrameMonitor::setSlowFrameTolerance(double seconds) {
  const bool valid = seconds >= 0 && std::isfinite(seconds);
  QENParameterAssert(valid, "seconds >= 0", "-[QENFrameMonitor setSlowFrameTolerance:]");
  if (valid) {
    const std::lock_guard guard(mutex_);
    slowFrameTolerance_ = seconds;
  }
}

QENFrameTally QENFrameMonitor::tally() const {
  const std::lock_guard guard(mutex_);
  return tally_;
}

QENFrameStatistics QENFrameMonitor::statisticsSince(const QENFrameTally& atStart, double startTime,
                                                    double stopTime) const {
  const std::lock_guard guard(mutex_);
  QENFrameStatistics statistics{tally_.total - atStart.total, tally_.slow - atStart.slow,
                                tally_.frozen - atStart.frozen, tally_.delay - atStart.delay};
  // The record holds the latest long frames only: the ones since the start still in it.
  const std::uint64_t first = std::max(
      atStart.longFrames,
      tally_.longFrames - std::min<std::uint64_t>(tally_.longFrames, kLongFrameRecordSize));
  for (std::uint64_t index = first; index < tally_.longFrames; ++index) {
    correctForEdge(longFrames_[index % kLongFrameRecordSize], startTime, stopTime, statistics);
  }
  statistics.delay = std::max(statistics.delay, 0.0);  // rounding of the tallies' difference
  return statistics;
}

void QENFrameMonitor::correctForEdge(const LongFrame& frame, double startTime, double stopTime,
                                     QENFrameStatistics& statistics) {
  if (frame.start >= startTime && frame.end <= stopTime) {
    return;  // inside: counted whole
  }
  const double inside =
      std::max(0.0, std::min(frame.end, stopTime) - std::max(frame.delayStart, startTime));
  statistics.delay -= (frame.end - frame.delayStart) - inside;
  if (frame.end <= startTime || frame.start >= stopTime) {
    --statistics.total;
    --(frame.frozen ? statistics.frozen : statistics.slow);
  }
}
