#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>

// Whether the user lets telemetry leave the device.
enum class QENTelemetryConsent {
  kPending,     // not asked yet: spans are kept (in the spool, else in the queue), nothing is sent
  kGranted,     // kept and sent
  kNotGranted,  // nothing is kept or sent, and what was kept is deleted
};

// What the host knows of the device, for when sending is worth its cost to the user.
struct QENDeviceConditions {
  bool online = true;
  bool metered = false;                  // a cellular or other paid-for network
  bool powerSave = false;                // the system's low-power or battery-saver mode
  std::optional<double> batteryLevel{};  // 0 to 1; unknown when absent
  bool charging = false;
};

class QENTokenBucket;

// The one place that says whether spans may go: the user's consent, what the device can afford,
// and the host's rate limit on what is reported. A batch takes a ticket when it is taken from the
// queue or read from the spool, and passes the gate again just before each post (a split's halves,
// an uncompressed resend, a retry): a refusal of consent that came after its ticket holds it back
// for good, even when consent was granted again meanwhile, and a pause holds it back until sending
// resumes.
//
// Not thread-safe: the reporter keeps it under the lock it waits on for the gate to open.
class QENDeliveryGate {
 public:
  using Ticket = std::uint64_t;
  enum class Verdict { kOpen, kPaused, kRefused };

  using Clock = std::chrono::steady_clock;

  // No rate limit when maximumSpansPerMinute is 0.
  QENDeliveryGate(QENTelemetryConsent consent, double minimumBatteryLevel,
                  bool pausesOnMeteredNetwork, std::uint64_t maximumSpansPerMinute = 0);
  ~QENDeliveryGate();
  QENDeliveryGate(const QENDeliveryGate&) = delete;
  QENDeliveryGate& operator=(const QENDeliveryGate&) = delete;

  // Whether one more reported span fits in the rate limit at `now` (a burst of up to a minute's
  // worth, then one every minute / maximumSpansPerMinute); it takes its place when it does.
  bool admitsReportedSpan(Clock::time_point now);

  Ticket ticket() const { return refusals_; }
  Verdict verdictFor(Ticket ticket) const;
  // Whether a batch taken now could go at once.
  bool isOpen() const { return verdictFor(ticket()) == Verdict::kOpen; }
  QENTelemetryConsent consent() const { return consent_; }

  void setConsent(QENTelemetryConsent consent);
  void setDeviceConditions(const QENDeviceConditions& conditions) { device_ = conditions; }

 private:
  bool deviceAffordsSending() const;

  QENTelemetryConsent consent_;
  QENDeviceConditions device_;
  const double minimumBatteryLevel_;
  const bool pausesOnMeteredNetwork_;
  Ticket refusals_ = 0;  // refusals so far: a ticket older than the last is void
  const std::unique_ptr<QENTokenBucket> rateLimit_;  // null without a limit
};
