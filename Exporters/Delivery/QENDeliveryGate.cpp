#include "QENDeliveryGate.h"

#include "QENTokenBucket.h"

QENDeliveryGate::QENDeliveryGate(QENTelemetryConsent consent, double minimumBatteryLevel,
                                 bool pausesOnMeteredNetwork, std::uint64_t maximumSpansPerMinute)
    : consent_(consent),
      minimumBatteryLevel_(minimumBatteryLevel),
      pausesOnMeteredNetwork_(pausesOnMeteredNetwork),
      rateLimit_(maximumSpansPerMinute == 0
                     ? nullptr
                     : std::make_unique<QENTokenBucket>(maximumSpansPerMinute, Clock::now())) {}

QENDeliveryGate::~QENDeliveryGate() = default;

bool QENDeliveryGate::admitsReportedSpan(Clock::time_point now) {
  return rateLimit_ == nullptr || rateLimit_->take(now);
}

QENDeliveryGate::Verdict QENDeliveryGate::verdictFor(Ticket ticket) const {
  if (ticket != refusals_ || consent_ == QENTelemetryConsent::kNotGranted) {
    return Verdict::kRefused;
  }
  const bool open = consent_ == QENTelemetryConsent::kGranted && deviceAffordsSending();
  return open ? Verdict::kOpen : Verdict::kPaused;
}

void QENDeliveryGate::setConsent(QENTelemetryConsent consent) {
  if (consent == QENTelemetryConsent::kNotGranted) {
    ++refusals_;
  }
  consent_ = consent;
}

bool QENDeliveryGate::deviceAffordsSending() const {
  const bool batteryLow =
      device_.batteryLevel && !device_.charging && *device_.batteryLevel < minimumBatteryLevel_;
  return device_.online && !device_.powerSave && !(device_.metered && pausesOnMeteredNetwork_) &&
         !batteryLow;
}
