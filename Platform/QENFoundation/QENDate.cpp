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
