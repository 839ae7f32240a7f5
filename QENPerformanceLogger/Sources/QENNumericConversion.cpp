#include "QENNumericConversion.h"

#include <cctype>
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

std::int64_t QENLeadingInt64(std::string_view text) noexcept {
  std::size_t position = 0;
  while (position < text.size() && std::isspace(static_cast<unsigned char>(text[position]))) {
    ++position;
  }
  bool negative = false;
  if (position < text.size() && (text[position] == '-' || text[position] == '+')) {
    negative = text[position] == '-';
    ++position;
  }
  constexpr std::uint64_t kLimit = std::uint64_t{std::numeric_limits<std::int64_t>::max()} + 1;
  std::uint64_t magnitude = 0;
  for (; position < text.size() && std::isdigit(static_cast<unsigned char>(text[position]));
       ++position) {
    const auto digit = static_cast<std::uint64_t>(text[position] - '0');
    magnitude = magnitude > (kLimit - digit) / 10 ? kLimit : magnitude * 10 + digit;
  }
  if (negative) {
    return magnitude == kLimit ? std::numeric_limits<std::int64_t>::min()
                               : -static_cast<std::int64_t>(magnitude);
  }
  return magnitude >= kLimit ? std::numeric_limits<std::int64_t>::max()
                             : static_cast<std::int64_t>(magnitude);
}
