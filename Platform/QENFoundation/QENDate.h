#pragma once

#include <compare>

// A wall-clock date: seconds since the reference date 2001-01-01 UTC, as the platform's date
// records count them. `monotonicTime` tells the monotonic-clock reading that corresponds to the
// date, so that dates delivered by a host (for instance by its URL-loading system) can be
// compared with the library's own clock readings.
class QENDate {
 public:
  // The current date.
  static QENDate date() noexcept;
  static QENDate dateWithTimeIntervalSinceReferenceDate(double seconds) noexcept;
  static QENDate dateWithTimeIntervalSince1970(double seconds) noexcept;
  // Dates beyond any real one, for running minimum and maximum searches.
  static QENDate distantFuture() noexcept;
  static QENDate distantPast() noexcept;
  // The date that corresponds to a monotonic time.
  static QENDate dateWithMonotonicTime(double monotonicTime) noexcept;

  QENDate earlierDate(const QENDate& other) const noexcept { return other < *this ? other : *this; }
  QENDate laterDate(const QENDate& other) const noexcept { return *this < other ? other : *this; }

  double timeIntervalSinceReferenceDate() const noexcept { return secondsSinceReferenceDate_; }
  double timeIntervalSince1970() const noexcept;
  double monotonicTime() const noexcept;

  friend bool operator==(const QENDate&, const QENDate&) = default;
  friend auto operator<=>(const QENDate&, const QENDate&) = default;

 private:
  explicit QENDate(double secondsSinceReferenceDate) noexcept
      : secondsSinceReferenceDate_(secondsSinceReferenceDate) {}

  double secondsSinceReferenceDate_;
};
