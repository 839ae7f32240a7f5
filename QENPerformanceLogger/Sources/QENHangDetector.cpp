#include "QENHangDetector.h"

#include <algorithm>
#include <utility>

QENHangDetector::QENHangDetector(double threshold, double checkInterval, double now)
    : threshold_(std::max(threshold, kMinimumThreshold)),
      checkInterval_(checkInterval),
      lastHeartbeat_(now),
      lastCheck_(now) {}

std::optional<QENHang> QENHangDetector::heartbeat(double now) {
  lastHeartbeat_ = std::max(lastHeartbeat_, now);
  return endHang(now);
}

QENHangDetector::CheckResult QENHangDetector::check(double now) {
  const double previousCheck = std::exchange(lastCheck_, std::max(lastCheck_, now));
  if (inBackground_) {
    return {};
  }
  if (now - previousCheck > 2 * checkInterval_) {  // suspended: nothing was seen in between
    lastHeartbeat_ = now;
    return {.began = std::nullopt, .ended = endHang(previousCheck)};
  }
  if (hangStart_ || now - lastHeartbeat_ < threshold_) {
    return {};
  }
  hangStart_ = lastHeartbeat_;
  return {.began = QENHang{*hangStart_, now}, .ended = std::nullopt};
}

std::optional<QENHang> QENHangDetector::enterBackground(double now) {
  inBackground_ = true;
  return endHang(now);
}

void QENHangDetector::enterForeground(double now) {
  inBackground_ = false;
  lastHeartbeat_ = std::max(lastHeartbeat_, now);
  lastCheck_ = std::max(lastCheck_, now);
}

std::optional<QENHang> QENHangDetector::endHang(double end) {
  if (!hangStart_) {
    return std::nullopt;
  }
  const double start = *hangStart_;
  hangStart_.reset();
  return QENHang{start, std::max(end, start)};
}
