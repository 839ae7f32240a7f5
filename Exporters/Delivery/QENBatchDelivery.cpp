#include "QENBatchDelivery.h"

#include <algorithm>
#include <optional>

#include "QENCurlCollectorTransport.h"
#include "QENFoundation/QENFoundationDevLogger.h"
#include "QENGzip.h"
#include "QENHostCall.h"
#include "QENPerformanceLoggerVersion.h"

namespace {

using Outcome = QENCollectorTransport::Outcome;
using Counter = std::uint64_t QENSpanReporterCounters::*;
using std::chrono::milliseconds;

// Where the spans of a batch end up when its last outcome is the one named. A batch held back
// for a refusal of consent counts as such instead; one that a pause held back until the deadline,
// or the deadline cut off, as shut down.
constexpr std::pair<Outcome, Counter> kCounterOfOutcome[] = {
    {Outcome::kDelivered, &QENSpanReporterCounters::delivered},
    {Outcome::kRetry, &QENSpanReporterCounters::droppedGaveUp},
    {Outcome::kSlowDown, &QENSpanReporterCounters::droppedGaveUp},
    {Outcome::kTooLarge, &QENSpanReporterCounters::droppedTooLarge},
    {Outcome::kUnsupportedEncoding, &QENSpanReporterCounters::droppedClientError},
    {Outcome::kRefused, &QENSpanReporterCounters::droppedClientError},
    {Outcome::kCutOff, &QENSpanReporterCounters::droppedShutDown},
    {Outcome::kTransportFailed, &QENSpanReporterCounters::droppedHostFault},
    {Outcome::kHeldBack, &QENSpanReporterCounters::droppedShutDown},
};

bool isWorthRetrying(Outcome outcome) {
  return outcome == Outcome::kRetry || outcome == Outcome::kSlowDown;
}

const std::string& userAgent() {
  static const std::string agent =
      std::string("QENPerformanceLogger/") + QENPerformanceLoggerVersionString;
  return agent;
}

std::shared_ptr<QENCollectorTransport> transportFor(const QENSpanReporterOptions& options) {
  if (options.transport != nullptr) {
    return options.transport;
  }
  return std::make_shared<QENCurlCollectorTransport>(options.collectorURL, options.requestTimeout);
}

}  // namespace

QENBatchDelivery::QENBatchDelivery(const QENSpanReporterOptions& options,
                                   QENSpanReporterState& state)
    : options_(options),
      state_(state),
      transport_(transportFor(options)),
      encoding_(options.encoding),
      spoolWaiting_(options.spool != nullptr),
      spoolBackoff_(options.initialBackoff, options.maximumBackoff) {}

std::uint64_t& QENBatchDelivery::counterFor(Outcome outcome, QENDeliveryGate::Ticket ticket) {
  if (outcome == Outcome::kHeldBack &&
      state_.gate.verdictFor(ticket) == QENDeliveryGate::Verdict::kRefused) {
    return state_.counters.droppedNoConsent;
  }
  const auto* entry = std::find_if(std::begin(kCounterOfOutcome), std::end(kCounterOfOutcome),
                                   [outcome](const auto& row) { return row.first == outcome; });
  return state_.counters.*(entry->second);
}

// A batch too large goes again in halves, down to single spans; a gzip body the collector cannot
// read goes again uncompressed, and so does every later one.
void QENBatchDelivery::deliver(std::span<const std::string> encodedSpans,
                               QENDeliveryGate::Ticket ticket) {
  QENEncodedBatch batch = encoding_.frameBatch(encodedSpans);
  QENBackoff backoff(options_.initialBackoff, options_.maximumBackoff);
  for (int attempt = 0;; ++attempt) {
    const Outcome outcome = post(batch, ticket, true);
    if (outcome == Outcome::kTooLarge && encodedSpans.size() > 1) {
      const std::size_t half = encodedSpans.size() / 2;
      deliver(encodedSpans.first(half), ticket);
      deliver(encodedSpans.subspan(half), ticket);
      return;
    }
    if (outcome == Outcome::kUnsupportedEncoding && batch.gzipped && stopGzipping()) {
      batch = encoding_.frameBatch(encodedSpans);
      continue;
    }
    std::unique_lock lock(state_.mutex);
    if (isWorthRetrying(outcome) && attempt < options_.maximumRetries) {
      if (!waitForRetry(lock, pauseAfter(outcome, backoff))) {
        state_.counters.droppedShutDown += batch.spanCount;
        return;
      }
      state_.counters.retried += batch.spanCount;
      continue;
    }
    counterFor(outcome, ticket) += batch.spanCount;
    return;
  }
}

// A batch stays in the spool while it may still go: cut off by the deadline (for a later
// process), held back (until the gate opens, or the spool's clearing takes it), or worth a retry
// within maximumSpooledRetries. Otherwise it leaves, counted by the table.
void QENBatchDelivery::deliverFromSpool() {
  const QENDeliveryGate::Ticket ticket = [this] {
    const std::lock_guard guard(state_.mutex);
    return state_.gate.ticket();
  }();
  const std::optional<QENSpanSpool::Batch> batch = options_.spool->oldest();
  if (!batch) {
    const std::lock_guard guard(state_.mutex);
    spoolWaiting_ = false;
    return;
  }
  if (!admitted(ticket, false)) {
    return;
  }
  if (batch->attempts > 0) {
    const std::lock_guard guard(state_.mutex);
    state_.counters.retried += batch->spanCount;
  }
  options_.spool->recordAttempt(batch->id);
  const Outcome outcome = post(*batch, ticket, false);
  if ((outcome == Outcome::kTooLarge || outcome == Outcome::kUnsupportedEncoding) &&
      reshapeSpooled(*batch, outcome)) {
    return;
  }
  const bool triesAgain =
      isWorthRetrying(outcome) && batch->attempts < options_.maximumSpooledRetries;
  if (triesAgain || outcome == Outcome::kCutOff || outcome == Outcome::kHeldBack) {
    const std::lock_guard guard(state_.mutex);
    if (outcome == Outcome::kCutOff) {
      spoolNotBefore_ = Clock::time_point::max();
    } else if (triesAgain) {
      spoolNotBefore_ = Clock::now() + pauseAfter(outcome, spoolBackoff_);
    }
    return;
  }
  // A batch the spool no longer has was counted by whatever removed it (a refusal's clearing).
  if (!options_.spool->remove(batch->id)) {
    return;
  }
  const std::lock_guard guard(state_.mutex);
  if (outcome == Outcome::kDelivered) {
    spoolBackoff_.reset();
  }
  counterFor(outcome, ticket) += batch->spanCount;
}

bool QENBatchDelivery::reshapeSpooled(const QENSpanSpool::Batch& batch, Outcome outcome) {
  if (outcome == Outcome::kUnsupportedEncoding && !batch.gzipped) {
    return false;  // already as plain as it gets
  }
  const auto body = batch.gzipped ? QENGzip::decompress(batch.body) : std::optional(batch.body);
  if (!body) {
    return false;
  }
  if (outcome == Outcome::kUnsupportedEncoding) {
    stopGzipping();
    return options_.spool->replace(
        batch.id, {QENEncodedBatch{*body, batch.contentType, false, batch.spanCount}});
  }
  const auto spans = encoding_.unframeBatch(*body);
  if (!spans || spans->size() < 2) {
    return false;
  }
  const std::span<const std::string> all(*spans);
  const std::size_t half = all.size() / 2;
  return options_.spool->replace(
      batch.id, {encoding_.frameBatch(all.first(half)), encoding_.frameBatch(all.subspan(half))});
}

bool QENBatchDelivery::stopGzipping() {
  if (!encoding_.gzip) {
    return false;
  }
  encoding_.gzip = false;
  QENFoundationDevLogger::sharedInstance().remote().logErrorWithMessage(
      "The collector at " + QENSpanScrubber::loggableURL(options_.collectorURL) +
          " does not read gzip bodies (415); this reporter sends them uncompressed",
      true, 1, "QENSpanReporter", nullptr, __LINE__, __FILE__);
  return true;
}

// Never shorter than the back-off: a collector that keeps answering "Retry-After: 0" must not
// make the reporter post in a tight loop.
milliseconds QENBatchDelivery::pauseAfter(Outcome outcome, QENBackoff& backoff) const {
  const milliseconds backedOff = backoff.next();
  std::optional<std::chrono::seconds> asked;
  if (outcome == Outcome::kSlowDown) {
    QENCallHost("The collector transport", [&] { asked = transport_->retryAfter(); });
  }
  if (!asked) {
    return backedOff;
  }
  // Compared in seconds first: a Retry-After of years would overflow milliseconds.
  const milliseconds bounded =
      *asked >= std::chrono::ceil<std::chrono::seconds>(options_.maximumRetryAfter)
          ? options_.maximumRetryAfter
          : std::min<milliseconds>(*asked, options_.maximumRetryAfter);
  return std::max(bounded, backedOff);
}

// The gate is passed again by the post that follows.
bool QENBatchDelivery::waitForRetry(std::unique_lock<std::mutex>& lock, milliseconds pause) {
  const auto until = Clock::now() + pause;
  while (!state_.deadline.hasPassed() && Clock::now() < until) {
    state_.changed.wait_until(lock, std::min(until, state_.deadline.time()));
  }
  return !state_.deadline.hasPassed();
}

bool QENBatchDelivery::admitted(QENDeliveryGate::Ticket ticket, bool waitWhilePaused) {
  std::unique_lock lock(state_.mutex);
  for (;;) {
    const QENDeliveryGate::Verdict verdict = state_.gate.verdictFor(ticket);
    if (verdict != QENDeliveryGate::Verdict::kPaused || !waitWhilePaused ||
        state_.deadline.hasPassed()) {
      return verdict == QENDeliveryGate::Verdict::kOpen;
    }
    if (state_.deadline.time() == Clock::time_point::max()) {
      state_.changed.wait(lock);
    } else {
      state_.changed.wait_until(lock, state_.deadline.time());
    }
  }
}

QENBatchDelivery::Outcome QENBatchDelivery::post(const QENEncodedBatch& batch,
                                                 QENDeliveryGate::Ticket ticket,
                                                 bool waitWhilePaused) {
  if (!admitted(ticket, waitWhilePaused)) {
    return Outcome::kHeldBack;
  }
  QENCollectorTransport::Headers headers{{"Content-Type", batch.contentType}};
  if (batch.gzipped) {
    headers.emplace_back("Content-Encoding", "gzip");
  }
  headers.emplace_back("User-Agent", userAgent());
  headers.insert(headers.end(), options_.headers.begin(), options_.headers.end());
  Outcome outcome = Outcome::kTransportFailed;
  QENCallHost("The collector transport",
              [&] { outcome = transport_->post(batch.body, headers, state_.deadline); });
  return outcome;
}
