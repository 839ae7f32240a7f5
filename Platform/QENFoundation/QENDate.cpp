#include "QENDate.h"

#include "QENMonotonicTime.h"

QENDate QENDate::date() noexcept {
  return dateWithMonotonicTime(QENMonotonicTimeGetCurrent());
}

QENDate QENDate::dateWithTimeIntervalSinceReferenceDate(double seconds) noexcept {
  return QENDate(seconds);
}

QENDate QENDate::dateWithTimeIntervalSince1970(double seconds) noexcept {
  return QENDate(seconds - kCFAbsoluteTimeIntervalSince1970);
}

QENDate QENDate::dateWithMonotonicTime(double monotonicTime) noexcept {
  return QENDate(QENMonotonicTimeGetAbsoluteTime(monotonicTime));
}

double QENDate::timeIntervalSince1970() const noexcept {
  return secondsSinceReferenceDate_ + kCFAbsoluteTimeIntervalSince1970;
}

double QENDate::monotonicTime() const noexcept {
  return QENMonotonicTimeFromAbsoluteTime(secondsSinceReferenceDate_);
}

// About the year 4001 and the year 1, as the platform's dates have them.
QENDate QENDate::distantFuture() noexcept {
  return QENDate(63113904000.0);
}

QENDate QENDate::distantPast() noexcept {
  return QENDate(-63114076800.0);
}
