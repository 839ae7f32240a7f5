#pragma once

#include <condition_variable>
#include <mutex>

#include "QENDeliveryDeadline.h"
#include "QENDeliveryGate.h"
#include "QENSpanReporterCounters.h"

// What a reporter's callers and its thread share. Everything but the deadline (which only moves
// earlier, and is read without the lock) is guarded by `mutex`; `changed` is notified whenever
// something a waiter may be waiting for changes: spans queued, consent or the device, shutdown.
struct QENSpanReporterState {
  QENSpanReporterState(QENTelemetryConsent consent, double minimumBatteryLevel,
                       bool pausesOnMeteredNetwork, std::uint64_t maximumSpansPerMinute)
      : gate(consent, minimumBatteryLevel, pausesOnMeteredNetwork, maximumSpansPerMinute) {}

  std::mutex mutex;
  std::condition_variable changed;
  QENSpanReporterCounters counters;
  QENDeliveryGate gate;
  bool stopping = false;
  // When shutdown's time is up; the end of time until shutdown.
  QENDeliveryDeadline deadline;
};
