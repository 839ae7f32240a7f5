#pragma once

#include <cstdint>
#include <string_view>

// Conversions from doubles to 64-bit integers that are defined for every input: values beyond
// the signed 64-bit range saturate at its ends, and NaN gives 0.

// Rounds half away from zero (1.5 -> 2, -1.5 -> -2): span timestamps and durations.
std::int64_t QENRoundToInt64(double value) noexcept;

// Truncates toward zero: network timings.
std::int64_t QENTruncateToInt64(double value) noexcept;

// Microseconds since the Unix epoch of a monotonic time, rounded half away from zero.
std::int64_t QENMicrosecondsSince1970FromMonotonicTime(double monotonicTime) noexcept;

// The leading decimal number of a text, as a 64-bit integer: leading blanks and a sign are
// skipped, the digits end at the first other character, a value past the range saturates, and
// a text without digits gives 0 ("  -42abc" gives -42).
std::int64_t QENLeadingInt64(std::string_view text) noexcept;

// Sums and differences of counts and offsets that come from the host: they wrap as two's
// complement integers rather than overflow (which would be undefined).
constexpr std::int64_t QENWrappingSum(std::int64_t left, std::int64_t right) noexcept {
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(left) +
                                   static_cast<std::uint64_t>(right));
}

constexpr std::int64_t QENWrappingDifference(std::int64_t left, std::int64_t right) noexcept {
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(left) -
                                   static_cast<std::uint64_t>(right));
}
