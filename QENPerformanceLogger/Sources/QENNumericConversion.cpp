#include "QENNumericConversion.h"

#include <cmath>
#include <limits>

#include "QENFoundation/QENMonotonicTime.h"

namespace {

// 2^63: the first double past the signed 64-bit range; -2^63 is its lowest value, exactly.
constexpr double kTwoToThe63 = 9223372036854775808.0;

std::int64_t saturatingFromIntegralDouble(double integral) noexcept {
  if (std::isnan(integral)) {
    return 0;
  }
  if (integral >= kTwoToThe63) {
    return std::numeric_limits<std::int64_t>::max();
  }
  if (integral < -kTwoToThe63) {
    return std::numeric_limits<std::int64_t>::min();
  }
  return static_cast<std::int64_t>(integral);
}

}  // namespace

std::int64_t QENRoundToInt64(double value) noexcept {
  return saturatingFromIntegralDouble(std::round(value));
}

std::int64_t QENTruncateToInt64(double value) noexcept {
  return saturatingFromIntegralDouble(std::trunc(value));
}

std::int64_t QENMicrosecondsSince1970FromMonotonicTime(double monotonicTime) noexcept {
  return QENRoundToInt64(
      (QENMonotonicTimeGetAbsoluteTime(monotonicTime) + kCFAbsoluteTimeIntervalSince1970) *
      1000000);
}
