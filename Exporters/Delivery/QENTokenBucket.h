#pragma once

#include <chrono>
#include <cstdint>

// Lets `perMinute` takes through a minute: a burst of up to as many at once, then one every
// minute / perMinute. Time is given, not read, so that the caller reads its clock once for many
// takes. Not thread-safe.
class QENTokenBucket {
 public:
  using Clock = std::chrono::steady_clock;

  QENTokenBucket(std::uint64_t perMinute, Clock::time_point now);
  bool take(Clock::time_point now);

 private:
  double capacity_;
  double tokens_;
  Clock::time_point refilledAt_;
};
