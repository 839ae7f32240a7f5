#pragma once

#include <cstdint>

// Conversions from doubles to 64-bit integers that are defined for every input: values beyond
// the signed 64-bit range saturate at its ends, and NaN gives 0.

// Rounds half away from zero (1.5 -> 2, -1.5 -> -2): span timestamps and durations.
std::int64_t QENRoundToInt64(double value) noexcept;

// Truncates toward zero: network timings.
std::int64_t QENTruncateToInt64(double value) noexcept;

// Microseconds since the Unix epoch of a monotonic time, rounded half away from zero.
std::int64_t QENMicrosecondsSince1970FromMonotonicTime(double monotonicTime) noexcept;
