#include "QENBackoff.h"

#include <algorithm>

QENBackoff::QENBackoff(std::chrono::milliseconds initial, std::chrono::milliseconds maximum)
    : initial_(initial), maximum_(maximum), current_(initial) {}

std::chrono::milliseconds QENBackoff::next() {
  const std::chrono::milliseconds wait = current_;
  current_ = std::min(current_ * 2, maximum_);
  return wait;
}

void QENBackoff::reset() {
  current_ = initial_;
}
