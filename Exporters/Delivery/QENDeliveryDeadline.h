#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>

// The time by which delivery must end. It starts at the end of time, and only ever moves earlier:
// a reporter that shuts down brings it forward, from any thread, while a post may be running, so
// whoever waits reads it again each time.
class QENDeliveryDeadline {
 public:
  using Clock = std::chrono::steady_clock;

  Clock::time_point time() const { return Clock::time_point(Clock::duration(ticks_.load())); }
  bool hasPassed() const { return Clock::now() >= time(); }
  void bringForwardTo(Clock::time_point time) {
    Clock::rep current = ticks_.load();
    const Clock::rep wanted = time.time_since_epoch().count();
    while (wanted < current && !ticks_.compare_exchange_weak(current, wanted)) {
    }
  }

 private:
  std::atomic<Clock::rep> ticks_{Clock::duration::max().count()};
};
