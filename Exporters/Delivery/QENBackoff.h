#pragma once

#include <chrono>
#include <cstdint>
#include <functional>

// Waits between attempts that double from `initial` up to `maximum`, and start over after a
// success. Each wait is drawn between half of its step and the whole of it ("equal jitter"): the
// many apps one outage hit come back spread out, and none sooner than half its step.
class QENBackoff {
 public:
  // A number below `upperBound`, drawn uniformly; `upperBound` is at least 1.
  using Draw = std::function<std::uint32_t(std::uint32_t upperBound)>;

  // Draws from the platform's random source unless given `draw`.
  QENBackoff(std::chrono::milliseconds initial, std::chrono::milliseconds maximum,
             Draw draw = nullptr);

  // The wait before the next attempt; the step after it is twice as long, within the maximum.
  std::chrono::milliseconds next();
  void reset();

 private:
  std::chrono::milliseconds initial_;
  std::chrono::milliseconds maximum_;
  std::chrono::milliseconds current_;
  Draw draw_;
};
