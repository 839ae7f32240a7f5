#include "QENTokenBucket.h"

#include <algorithm>

QENTokenBucket::QENTokenBucket(std::uint64_t perMinute, Clock::time_point now)
    : capacity_(static_cast<double>(perMinute)), tokens_(capacity_), refilledAt_(now) {}

bool QENTokenBucket::take(Clock::time_point now) {
  if (now > refilledAt_) {
    const std::chrono::duration<double, std::ratio<60>> elapsed = now - refilledAt_;
    tokens_ = std::min(capacity_, tokens_ + elapsed.count() * capacity_);
    refilledAt_ = now;
  }
  if (tokens_ < 1) {
    return false;
  }
  tokens_ -= 1;
  return true;
}
