#pragma once

// The monotonic clock that every measurement of the library is taken on.
//
// Monotonic times are doubles of seconds since an arbitrary origin (CLOCK_MONOTONIC on Linux,
// through std::chrono::steady_clock). They never go backwards and do not jump when the user
// changes the wall clock. A host on another platform supplies the same functions over its own
// monotonic source (mach_absolute_time on Apple systems, CLOCK_MONOTONIC on Android).

// Seconds between the Unix epoch (1970-01-01 UTC) and the reference date 2001-01-01 UTC.
inline constexpr double kCFAbsoluteTimeIntervalSince1970 = 978307200.0;

// The current reading of the monotonic clock, in seconds.
double QENMonotonicTimeGetCurrent() noexcept;

// The same clock read cheaply, up to a few milliseconds behind the current reading (the last
// kernel tick on Linux): enough to tell whether a time lies an hour away, and no more.
double QENMonotonicTimeGetCoarse() noexcept;

// Maps a monotonic time to absolute time: seconds since the reference date 2001-01-01 UTC.
// The offset between the wall clock and the monotonic clock is measured once per process, so
// the mapping is a fixed translation: differences between monotonic times are kept exactly,
// and a later change of the wall clock does not move times already taken.
double QENMonotonicTimeGetAbsoluteTime(double monotonicTime) noexcept;

// The inverse of QENMonotonicTimeGetAbsoluteTime.
double QENMonotonicTimeFromAbsoluteTime(double absoluteTime) noexcept;

// Whether a value can be a reading of the monotonic clock: finite and not negative.
// Dates far before the process started map to negative monotonic times and are not valid.
bool QENIsValidMonotonicTime(double monotonicTime) noexcept;
