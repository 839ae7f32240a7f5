#include "QENMonotonicTime.h"

#include <chrono>
#include <cmath>

#include "QENHost/QENHostSystem.h"

namespace {

double secondsSinceEpochOf(std::chrono::nanoseconds sinceEpoch) {
  return std::chrono::duration<double>(sinceEpoch).count();
}

double wallClockAbsoluteTimeNow() {
  const auto sinceUnixEpoch = std::chrono::system_clock::now().time_since_epoch();
  return secondsSinceEpochOf(sinceUnixEpoch) - kCFAbsoluteTimeIntervalSince1970;
}

// Absolute time minus monotonic time, read once: the two clocks are read back to back, and the
// pair with the shortest gap between its monotonic readings of a few tries is kept.
double absoluteTimeOffset() {
  static const double offset = [] {
    double bestGap = INFINITY;
    double bestOffset = 0.0;
    for (int attempt = 0; attempt < 3; ++attempt) {
      const double before = QENMonotonicTimeGetCurrent();
      const double absolute = wallClockAbsoluteTimeNow();
      const double after = QENMonotonicTimeGetCurrent();
      if (after - before < bestGap) {
        bestGap = after - before;
        bestOffset = absolute - (before + after) / 2.0;
      }
    }
    return bestOffset;
  }();
  return offset;
}

}  // namespace

double QENMonotonicTimeGetCurrent() noexcept {
  return secondsSinceEpochOf(std::chrono::steady_clock::now().time_since_epoch());
}

double QENMonotonicTimeGetCoarse() noexcept {
  return QENHostSystem::coarseMonotonicSeconds();
}

double QENMonotonicTimeGetAbsoluteTime(double monotonicTime) noexcept {
  return monotonicTime + absoluteTimeOffset();
}

double QENMonotonicTimeFromAbsoluteTime(double absoluteTime) noexcept {
  return absoluteTime - absoluteTimeOffset();
}

bool QENIsValidMonotonicTime(double monotonicTime) noexcept {
  return std::isfinite(monotonicTime) && monotonicTime >= 0.0;
}
