#include "QENBackoff.h"

#include <algorithm>
#include <limits>

#include "QENFoundation/QENRandom.h"

QENBackoff::QENBackoff(std::chrono::milliseconds initial, std::chrono::milliseconds maximum,
                       Draw draw)
    : initial_(initial),
      maximum_(maximum),
      current_(initial),
      draw_(draw ? std::move(draw) : Draw(QENFoundation::arc4random_uniform)) {}

std::chrono::milliseconds QENBackoff::next() {
  const std::chrono::milliseconds step = current_;
  current_ = std::min(current_ * 2, maximum_);
  // Steps past what a draw can spread (49 days) are spread over its range.
  const auto half = std::min<std::chrono::milliseconds::rep>(
      step.count() / 2, std::numeric_limits<std::uint32_t>::max() - 1);
  const auto spread = static_cast<std::uint32_t>(half) + 1;
  return step - std::chrono::milliseconds(half) + std::chrono::milliseconds(draw_(spread));
}

void QENBackoff::reset() {
  current_ = initial_;
}
