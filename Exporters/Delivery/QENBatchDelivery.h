#pragma once

#include <chrono>
#include <memory>
#include <mutex>
#include <span>
#include <string>

#include "QENBackoff.h"
#include "QENCollectorTransport.h"
#include "QENSpanReporterOptions.h"
#include "QENSpanReporterState.h"

// What becomes of a batch the gate lets go: the transport's outcome decides whether it is sent
// again (in halves after a 413, uncompressed after a 415 to gzip, after a pause for a connection
// error, a 5xx or a 429, up to maximumRetries times, or maximumSpooledRetries from the spool) or
// ends, and one table says which counter
// each ending lands in, for a queued batch and a spooled one alike. A spooled batch is tried once
// per call and waits out its pause in the spool while new spans are persisted.
//
// Runs on the reporter's thread; what it shares with the reporter's callers is in `state`.
class QENBatchDelivery {
 public:
  using Clock = std::chrono::steady_clock;
  using Outcome = QENCollectorTransport::Outcome;

  QENBatchDelivery(const QENSpanReporterOptions& options, QENSpanReporterState& state);

  // The encoding batches are framed in; it stops gzipping for a collector that cannot read gzip.
  const QENSpanEncoding& encoding() const { return encoding_; }

  // A batch from the queue, taken with `ticket`, until it is delivered or dropped.
  void deliver(std::span<const std::string> encodedSpans, QENDeliveryGate::Ticket ticket);
  // One attempt at the oldest spooled batch, if its pause is over.
  void deliverFromSpool();

  // Under state.mutex: whether the spool may hold batches, which a batch persisted makes true.
  bool spoolWaiting() const { return spoolWaiting_; }
  void noteSpooled() { spoolWaiting_ = true; }
  // Under state.mutex: when the spool's oldest batch may be tried next.
  Clock::time_point spoolNotBefore() const { return spoolNotBefore_; }
  bool spoolReady(Clock::time_point now) const { return spoolWaiting_ && now >= spoolNotBefore_; }

  // Makes a post under way look at the deadline, which has just moved earlier.
  void wakeTransport() { transport_->wake(); }

 private:
  // The counter that the spans of a batch ending with `outcome` land in. Under state.mutex.
  std::uint64_t& counterFor(Outcome outcome, QENDeliveryGate::Ticket ticket);
  // After a 413 or a 415, puts what the collector may take in the place of a spooled batch: its
  // halves, or its uncompressed self. False when there is nothing to put (one span, a body this
  // reporter cannot read, a write that failed).
  bool reshapeSpooled(const QENSpanSpool::Batch& batch, Outcome outcome);
  // After a 415 to a gzip body: false when bodies already go uncompressed.
  bool stopGzipping();
  // kHeldBack, without posting, unless the gate lets the batch of `ticket` go: at once, or (with
  // waitWhilePaused) once sending resumes within the deadline.
  Outcome post(const QENEncodedBatch& batch, QENDeliveryGate::Ticket ticket, bool waitWhilePaused);
  bool admitted(QENDeliveryGate::Ticket ticket, bool waitWhilePaused);
  // Waits `pause`, cut short by shutdown's deadline; false once that has passed.
  bool waitForRetry(std::unique_lock<std::mutex>& lock, std::chrono::milliseconds pause);
  // How long to wait before the next attempt after `outcome`.
  std::chrono::milliseconds pauseAfter(Outcome outcome, QENBackoff& backoff) const;

  const QENSpanReporterOptions& options_;
  QENSpanReporterState& state_;
  const std::shared_ptr<QENCollectorTransport> transport_;
  QENSpanEncoding encoding_;
  bool spoolWaiting_;  // what an earlier process left goes first
  Clock::time_point spoolNotBefore_;
  QENBackoff spoolBackoff_;
};
