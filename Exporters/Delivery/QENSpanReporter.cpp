#include "QENSpanReporter.h"

#include <algorithm>
#include <optional>
#include <system_error>
#include <unordered_map>

#include "QENBatchDelivery.h"
#include "QENFoundation/QENFoundationDevLogger.h"
#include "QENHostCall.h"
#include "QENSpanBatcher.h"
#include "QENSpanReporterState.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// The `limit` spans of `spans` nearest the top of their tree, in their order. A span's depth is
// its parent's plus one when the parent came before it in the list, else 0.
QENSpanReporter::SpanList topLevelsFirst(const QENSpanReporter::SpanList& spans,
                                         std::size_t limit) {
  std::unordered_map<std::int64_t, std::size_t> depthOfId;
  std::vector<std::pair<std::size_t, std::size_t>> depthAndIndex;
  for (std::size_t index = 0; index < spans.size(); ++index) {
    const QENThrift::Span* span = spans[index].get();
    if (span == nullptr) {
      continue;
    }
    const auto parent =
        span->parent_idIsSet() ? depthOfId.find(span->parent_id()) : depthOfId.end();
    const std::size_t depth = parent == depthOfId.end() ? 0 : parent->second + 1;
    depthOfId.emplace(span->id(), depth);
    depthAndIndex.emplace_back(depth, index);
  }
  const auto kept =
      depthAndIndex.begin() + static_cast<std::ptrdiff_t>(std::min(limit, depthAndIndex.size()));
  std::partial_sort(depthAndIndex.begin(), kept, depthAndIndex.end());
  std::sort(depthAndIndex.begin(), kept,
            [](const auto& left, const auto& right) { return left.second < right.second; });
  QENSpanReporter::SpanList result;
  for (auto entry = depthAndIndex.begin(); entry != kept; ++entry) {
    result.push_back(spans[entry->second]);
  }
  return result;
}

}  // namespace

QENSpanReporter::QENSpanReporter(QENSpanReporterOptions options)
    : options_(options.validated()),
      state_(std::make_unique<QENSpanReporterState>(options_.consent, options_.minimumBatteryLevel,
                                                    options_.pausesOnMeteredNetwork,
                                                    options_.maximumSpansPerMinute)),
      batcher_(std::make_unique<QENSpanBatcher>(
          QENSpanBatcher::Limits{options_.maximumQueuedSpans, options_.maximumBatchSpans,
                                 options_.maximumBatchBytes, options_.flushInterval})),
      delivery_(std::make_unique<QENBatchDelivery>(options_, *state_)) {
  const bool refused = options_.consent == QENTelemetryConsent::kNotGranted;
  if (options_.spool != nullptr) {
    options_.spool->refuseSnapshots(refused);
  }
  if (refused && options_.spool != nullptr) {
    options_.spool->clear();
  }
  worker_ = std::thread([this] { run(); });
}

std::shared_ptr<QENSpanReporter> QENSpanReporter::makeReleasedInBackground(
    QENSpanReporterOptions options) {
  return std::shared_ptr<QENSpanReporter>(
      new QENSpanReporter(std::move(options)), [](QENSpanReporter* reporter) {
#if defined(__cpp_exceptions)
        try {
          std::thread([reporter] { delete reporter; }).detach();
        } catch (const std::system_error&) {
          delete reporter;  // no thread to be had: here, rather than never
        }
#else
        std::thread([reporter] { delete reporter; }).detach();
#endif
      });
}

QENSpanReporter::~QENSpanReporter() {
  shutdown(options_.destructionShutdownLimit);
}

void QENSpanReporter::report(const SpanList& reported) {
  const std::size_t present = static_cast<std::size_t>(
      std::count_if(reported.begin(), reported.end(), [](const auto& span) { return span; }));
  const bool overCap = present > options_.maximumSpansPerReport;
  const SpanList spans =
      overCap ? topLevelsFirst(reported, options_.maximumSpansPerReport) : SpanList();
  const auto now = Clock::now();
  {
    const std::lock_guard guard(state_->mutex);
    QENSpanReporterCounters& counters = state_->counters;
    if (overCap) {
      counters.accepted += present - spans.size();
      counters.droppedOverReportCap += present - spans.size();
    }
    for (const auto& span : overCap ? spans : reported) {
      if (span == nullptr) {
        continue;
      }
      ++counters.accepted;
      if (state_->gate.consent() == QENTelemetryConsent::kNotGranted) {
        ++counters.droppedNoConsent;
      } else if (state_->stopping) {
        ++counters.droppedShutDown;
      } else if (!state_->gate.admitsReportedSpan(now)) {
        ++counters.droppedRateLimited;
      } else if (batcher_->add(span, now)) {
        ++counters.droppedQueueFull;
      }
    }
  }
  state_->changed.notify_one();
}

bool QENSpanReporter::shutdown(milliseconds limit) {
  {
    const std::lock_guard guard(state_->mutex);
    state_->stopping = true;
    state_->deadline.bringForwardTo(Clock::now() + std::max(limit, milliseconds(0)));
  }
  state_->changed.notify_all();
  delivery_->wakeTransport();
  {
    // Later callers wait here for the first one's join; the worker meets the earliest deadline.
    const std::lock_guard joinGuard(joinMutex_);
    if (worker_.joinable()) {
      worker_.join();
    }
  }
  std::call_once(stopReported_, [this] { reportStop(); });
  const QENSpanReporterCounters counters = this->counters();
  if (options_.spool != nullptr) {
    const std::lock_guard guard(state_->mutex);
    return !delivery_->spoolWaiting() && counters.persisted == counters.accepted;
  }
  return counters.delivered == counters.accepted;
}

void QENSpanReporter::reportStop() {
  const QENSpanReporterCounters counters = this->counters();
  if (counters.dropped() > 0) {
    QENFoundationDevLogger::sharedInstance().remote().logErrorWithMessage(
        "QENSpanReporter stopped with " + std::to_string(counters.dropped()) + " of " +
            std::to_string(counters.accepted) + " spans undelivered (" + counters.droppedByCause() +
            ")",
        true, 1, "QENSpanReporter", nullptr, __LINE__, __FILE__);
  }
  if (options_.didStop) {
    QENCallHost("A reporter's didStop", [&] { options_.didStop(counters); });
  }
}

void QENSpanReporter::setConsent(QENTelemetryConsent consent) {
  {
    const std::lock_guard guard(state_->mutex);
    state_->gate.setConsent(consent);
    if (consent == QENTelemetryConsent::kNotGranted) {
      state_->counters.droppedNoConsent += batcher_->clear();
    }
  }
  // Here rather than on the worker: once this returns, nothing is left on disk, whatever the
  // worker is doing. A batch it is persisting meanwhile is cleared by persist.
  if (options_.spool != nullptr) {
    options_.spool->refuseSnapshots(consent == QENTelemetryConsent::kNotGranted);
  }
  if (consent == QENTelemetryConsent::kNotGranted && options_.spool != nullptr) {
    options_.spool->clear();
  }
  state_->changed.notify_all();
}

void QENSpanReporter::setDeviceConditions(const QENDeviceConditions& conditions) {
  {
    const std::lock_guard guard(state_->mutex);
    state_->gate.setDeviceConditions(conditions);
  }
  state_->changed.notify_all();
}

bool QENSpanReporter::queueCanMove() const {
  return options_.spool != nullptr || state_->gate.isOpen();
}

QENSpanReporterCounters QENSpanReporter::counters() const {
  QENSpanReporterCounters counters;
  {
    const std::lock_guard guard(state_->mutex);
    counters = state_->counters;
  }
  if (options_.spool != nullptr) {
    const QENSpanSpoolCounters spool = options_.spool->counters();
    counters.persisted = spool.persisted;
    counters.droppedSpoolFull = spool.droppedFull;
    counters.droppedSpoolExpired = spool.droppedExpired;
    counters.droppedSpoolWriteFailed = spool.droppedWriteFailed;
    counters.droppedSpoolCleared = spool.droppedCleared;
  }
  return counters;
}

void QENSpanReporter::run() {
  std::unique_lock lock(state_->mutex);
  for (;;) {
    waitForWork(lock);
    const auto now = Clock::now();
    const bool sending = state_->gate.isOpen();
    // Stops once out of time, or once nothing more can move: what is left waits for a later
    // process in the spool, or is dropped with the queue.
    const bool queueDone = batcher_->empty() || !queueCanMove();
    const bool spoolDone = !delivery_->spoolWaiting() || !sending;
    if (state_->stopping && (state_->deadline.hasPassed() || (queueDone && spoolDone))) {
      state_->counters.droppedShutDown += batcher_->clear();
      return;
    }
    // A due batch is persisted (or, without a spool, sent), then one spooled batch is sent: under
    // a steady stream of spans, delivery still takes its turn.
    bool worked = false;
    if (!queueDone && (state_->stopping || batcher_->isDue(now))) {
      const QENDeliveryGate::Ticket ticket = state_->gate.ticket();
      const std::vector<std::string> encodedSpans = takeBatch(lock);
      lock.unlock();
      if (!encodedSpans.empty()) {  // empty when the tag filter threw on each of its spans
        if (options_.spool != nullptr) {
          persist(encodedSpans, ticket);
        } else {
          delivery_->deliver(encodedSpans, ticket);
        }
      }
      lock.lock();
      worked = true;
    }
    if (sending && delivery_->spoolReady(Clock::now())) {
      lock.unlock();
      delivery_->deliverFromSpool();
      lock.lock();
      worked = true;
    }
    if (!worked && state_->stopping) {  // a spooled batch waits out its pause, within the deadline
      state_->changed.wait_until(lock,
                                 std::min(delivery_->spoolNotBefore(), state_->deadline.time()));
    }
  }
}

// Returns once a batch is due (full, or its first span has waited the flush interval), a spooled
// batch may be sent, or the reporter stops. With nothing queued and nothing spooled it waits with
// no timer at all, so an idle reporter costs nothing whatever its flush interval.
void QENSpanReporter::waitForWork(std::unique_lock<std::mutex>& lock) {
  for (;;) {
    const auto now = Clock::now();
    const bool queueMoves = queueCanMove();
    const bool sending = state_->gate.isOpen();
    if (state_->stopping || (queueMoves && batcher_->isDue(now)) ||
        (sending && delivery_->spoolReady(now))) {
      return;
    }
    std::optional<Clock::time_point> wake;
    if (!batcher_->empty() && queueMoves) {
      wake = batcher_->dueAt();
    }
    if (delivery_->spoolWaiting() && sending) {
      wake = std::min(wake.value_or(Clock::time_point::max()), delivery_->spoolNotBefore());
    }
    if (wake) {
      state_->changed.wait_until(lock, *wake);
    } else {
      state_->changed.wait(lock);
    }
  }
}

std::vector<std::string> QENSpanReporter::takeBatch(std::unique_lock<std::mutex>& lock) {
  std::vector<std::string> encodedSpans;
  std::size_t bytes = 0;
  while (batcher_->batchTakesMore(encodedSpans.size(), bytes)) {
    const std::shared_ptr<QENThrift::Span> span = batcher_->takeOldest();
    lock.unlock();  // encoding needs no lock
    std::string encoded;
    const bool filtered =
        QENCallHost("A tag filter", [&] { encoded = delivery_->encoding().encodeSpan(*span); });
    lock.lock();
    if (!filtered) {
      ++state_->counters.droppedHostFault;
      continue;
    }
    bytes += encoded.size();
    encodedSpans.push_back(std::move(encoded));
  }
  return encodedSpans;
}

void QENSpanReporter::persist(const std::vector<std::string>& encodedSpans,
                              QENDeliveryGate::Ticket ticket) {
  if (!options_.spool->append(delivery_->encoding().frameBatch(encodedSpans))) {
    return;
  }
  std::unique_lock lock(state_->mutex);
  delivery_->noteSpooled();
  // Withdrawn while it was written (and perhaps given again since): the clear may have come first.
  if (state_->gate.verdictFor(ticket) == QENDeliveryGate::Verdict::kRefused) {
    lock.unlock();
    options_.spool->clear();
  }
}
