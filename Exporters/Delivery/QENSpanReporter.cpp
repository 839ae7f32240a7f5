#include "QENSpanReporter.h"

#include <algorithm>
#include <system_error>
#include <unordered_map>

#include "QENAssert.h"
#include "QENBackoff.h"
#include "QENCurlCollectorTransport.h"
#include "QENFoundation/QENFoundationDevLogger.h"
#include "QENGzip.h"
#include "QENHostCall.h"
#include "QENPerformanceLoggerVersion.h"
#include "QENTokenBucket.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

const std::string& userAgent() {
  static const std::string agent =
      std::string("QENPerformanceLogger/") + QENPerformanceLoggerVersionString;
  return agent;
}

constexpr const char* kConstructor = "QENSpanReporter::QENSpanReporter(QENSpanReporterOptions)";

void logReporterError(const std::string& message, int line) {
  QENFoundationDevLogger::sharedInstance().remote().logErrorWithMessage(
      message, true, 1, "QENSpanReporter", nullptr, line, __FILE__);
}

// Replaces a setting below its floor by the floor, reporting it.
template <class Value>
void raiseToFloor(Value& value, Value floor, const char* conditionText) {
  QENAssert(value >= floor, kConstructor, "Invalid parameter not satisfying: %s", conditionText);
  value = std::max(value, floor);
}

std::shared_ptr<QENCollectorTransport> transportFor(const QENSpanReporterOptions& options) {
  if (options.transport != nullptr) {
    return options.transport;
  }
  return std::make_shared<QENCurlCollectorTransport>(options.collectorURL, options.requestTimeout);
}

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

QENSpanReporterOptions QENSpanReporter::validated(QENSpanReporterOptions options) {
  raiseToFloor<std::size_t>(options.maximumSpansPerReport, 1, "maximumSpansPerReport >= 1");
  raiseToFloor<std::size_t>(options.encoding.reading.maximumTagsPerSpan,
                            QENSpanReading::kLeastTagsPerSpan, "maximumTagsPerSpan >= 1");
  raiseToFloor<std::size_t>(options.encoding.reading.maximumTagValueBytes,
                            QENSpanReading::kLeastTagValueBytes, "maximumTagValueBytes >= 16");
  raiseToFloor<std::size_t>(options.maximumQueuedSpans, 1, "maximumQueuedSpans >= 1");
  raiseToFloor<std::size_t>(options.maximumBatchSpans, 1, "maximumBatchSpans >= 1");
  raiseToFloor<std::size_t>(options.maximumBatchBytes, 1, "maximumBatchBytes >= 1");
  raiseToFloor(options.flushInterval, milliseconds(0), "flushInterval >= 0");
  raiseToFloor(options.maximumRetries, 0, "maximumRetries >= 0");
  raiseToFloor(options.initialBackoff, milliseconds(0), "initialBackoff >= 0");
  raiseToFloor(options.maximumBackoff, options.initialBackoff, "maximumBackoff >= initialBackoff");
  raiseToFloor(options.maximumRetryAfter, milliseconds(0), "maximumRetryAfter >= 0");
  raiseToFloor(options.requestTimeout, milliseconds(1), "requestTimeout >= 1 ms");
  raiseToFloor(options.destructionShutdownLimit, milliseconds(0), "destructionShutdownLimit >= 0");
  const double level = options.minimumBatteryLevel;
  const bool levelValid = level >= 0 && level <= 1;  // NaN too is not
  QENAssert(levelValid, kConstructor, "Invalid parameter not satisfying: %s",
            "0 <= minimumBatteryLevel <= 1");
  options.minimumBatteryLevel = levelValid ? level : level > 1 ? 1 : 0;
  QENAssert(options.transport != nullptr || !options.collectorURL.empty(), kConstructor,
            "Invalid parameter not satisfying: %s", "collectorURL is not empty");
  // A line break would end the header early and smuggle in another; such a header is left out.
  std::erase_if(options.headers, [](const auto& header) {
    const auto& [name, value] = header;
    const bool wellFormed = !name.empty() && name.find_first_of(":\r\n") == std::string::npos &&
                            value.find_first_of("\r\n") == std::string::npos;
    QENAssert(wellFormed, kConstructor, "Invalid parameter not satisfying: %s",
              "a header has a name without a colon, and no line break");
    return !wellFormed;
  });
  return options;
}

QENSpanReporter::QENSpanReporter(QENSpanReporterOptions options)
    : options_(validated(std::move(options))),
      encoding_(options_.encoding),
      transport_(transportFor(options_)),
      spoolWaiting_(options_.spool != nullptr),  // what an earlier process left goes first
      spoolBackoff_(std::make_unique<QENBackoff>(options_.initialBackoff, options_.maximumBackoff)),
      rateLimit_(
          options_.maximumSpansPerMinute == 0
              ? nullptr
              : std::make_unique<QENTokenBucket>(options_.maximumSpansPerMinute, Clock::now())),
      gate_(options_.consent, options_.minimumBatteryLevel, options_.pausesOnMeteredNetwork) {
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
    const std::lock_guard guard(mutex_);
    if (overCap) {
      counters_.accepted += present - spans.size();
      counters_.droppedOverReportCap += present - spans.size();
    }
    for (const auto& span : overCap ? spans : reported) {
      if (span == nullptr) {
        continue;
      }
      ++counters_.accepted;
      if (gate_.consent() == QENTelemetryConsent::kNotGranted) {
        ++counters_.droppedNoConsent;
        continue;
      }
      if (stopping_) {
        ++counters_.droppedShutDown;
        continue;
      }
      if (rateLimit_ != nullptr && !rateLimit_->take(now)) {
        ++counters_.droppedRateLimited;
        continue;
      }
      if (queue_.size() >= options_.maximumQueuedSpans) {
        queue_.pop_front();  // the oldest make room
        ++counters_.droppedQueueFull;
      }
      if (queue_.empty()) {
        oldestQueuedAt_ = Clock::now();
      }
      queue_.push_back(span);
    }
  }
  changed_.notify_one();
}

bool QENSpanReporter::shutdown(milliseconds limit) {
  {
    const std::lock_guard guard(mutex_);
    stopping_ = true;
    deadline_.bringForwardTo(Clock::now() + std::max(limit, milliseconds(0)));
  }
  changed_.notify_all();
  transport_->wake();
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
    const std::lock_guard guard(mutex_);
    return !spoolWaiting_ && counters.persisted == counters.accepted;
  }
  return counters.delivered == counters.accepted;
}

void QENSpanReporter::reportStop() {
  const QENSpanReporterCounters counters = this->counters();
  if (counters.dropped() > 0) {
    const std::pair<const char*, std::uint64_t> causes[] = {
        {"queue full", counters.droppedQueueFull},
        {"over the report cap", counters.droppedOverReportCap},
        {"rate limited", counters.droppedRateLimited},
        {"client error", counters.droppedClientError},
        {"too large", counters.droppedTooLarge},
        {"gave up", counters.droppedGaveUp},
        {"shut down", counters.droppedShutDown},
        {"spool full", counters.droppedSpoolFull},
        {"spool expired", counters.droppedSpoolExpired},
        {"spool write failed", counters.droppedSpoolWriteFailed},
        {"no consent", counters.droppedNoConsent},
        {"spool cleared", counters.droppedSpoolCleared},
        {"host code threw", counters.droppedHostFault}};
    std::string byCause;
    for (const auto& [cause, count] : causes) {
      if (count > 0) {
        byCause += (byCause.empty() ? "" : ", ") + std::string(cause) + " " + std::to_string(count);
      }
    }
    logReporterError("QENSpanReporter stopped with " + std::to_string(counters.dropped()) + " of " +
                         std::to_string(counters.accepted) + " spans undelivered (" + byCause + ")",
                     __LINE__);
  }
  if (options_.didStop) {
    QENCallHost("A reporter's didStop", [&] { options_.didStop(counters); });
  }
}

void QENSpanReporter::setConsent(QENTelemetryConsent consent) {
  {
    const std::lock_guard guard(mutex_);
    gate_.setConsent(consent);
    if (consent == QENTelemetryConsent::kNotGranted) {
      counters_.droppedNoConsent += queue_.size();
      queue_.clear();
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
  changed_.notify_all();
}

void QENSpanReporter::setDeviceConditions(const QENDeviceConditions& conditions) {
  {
    const std::lock_guard guard(mutex_);
    gate_.setDeviceConditions(conditions);
  }
  changed_.notify_all();
}

bool QENSpanReporter::queueCanMove() const {
  return options_.spool != nullptr || gate_.isOpen();
}

QENSpanReporterCounters QENSpanReporter::counters() const {
  QENSpanReporterCounters counters;
  {
    const std::lock_guard guard(mutex_);
    counters = counters_;
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
  std::unique_lock lock(mutex_);
  for (;;) {
    waitForWork(lock);
    const auto now = Clock::now();
    const bool sending = gate_.isOpen();
    // Stops once out of time, or once nothing more can move: what is left waits for a later
    // process in the spool, or is dropped with the queue.
    const bool queueDone = queue_.empty() || !queueCanMove();
    if (stopping_ && (deadline_.hasPassed() || (queueDone && (!spoolWaiting_ || !sending)))) {
      counters_.droppedShutDown += queue_.size();
      queue_.clear();
      return;
    }
    // A due batch is persisted (or, without a spool, sent), then one spooled batch is sent: under
    // a steady stream of spans, delivery still takes its turn.
    bool worked = false;
    if (!queueDone && (stopping_ || queueReady(now))) {
      const QENDeliveryGate::Ticket ticket = gate_.ticket();
      const std::vector<std::string> encodedSpans = takeBatch(lock);
      lock.unlock();
      if (!encodedSpans.empty()) {  // empty when the tag filter threw on each of its spans
        if (options_.spool != nullptr) {
          persist(encoding_.frameBatch(encodedSpans), ticket);
        } else {
          deliver(encodedSpans, ticket);
        }
      }
      lock.lock();
      worked = true;
    }
    if (sending && spoolReady(Clock::now())) {
      lock.unlock();
      deliverFromSpool();
      lock.lock();
      worked = true;
    }
    if (!worked && stopping_) {  // a spooled batch waits out its back-off, within the deadline
      changed_.wait_until(lock, std::min(spoolNotBefore_, deadline_.time()));
    }
  }
}

bool QENSpanReporter::queueReady(Clock::time_point now) const {
  return !queue_.empty() && (queue_.size() >= options_.maximumBatchSpans ||
                             now >= oldestQueuedAt_ + options_.flushInterval);
}

bool QENSpanReporter::spoolReady(Clock::time_point now) const {
  return spoolWaiting_ && now >= spoolNotBefore_;
}

// Returns once a batch is due (full, or its first span has waited the flush interval), a spooled
// batch may be sent, or the reporter stops. With nothing queued and nothing spooled it waits with
// no timer at all, so an idle reporter costs nothing whatever its flush interval.
void QENSpanReporter::waitForWork(std::unique_lock<std::mutex>& lock) {
  for (;;) {
    const auto now = Clock::now();
    const bool queueMoves = queueCanMove();
    const bool sending = gate_.isOpen();
    if (stopping_ || (queueMoves && queueReady(now)) || (sending && spoolReady(now))) {
      return;
    }
    std::optional<Clock::time_point> wake;
    if (!queue_.empty() && queueMoves) {
      wake = oldestQueuedAt_ + options_.flushInterval;
    }
    if (spoolWaiting_ && sending) {
      wake = std::min(wake.value_or(spoolNotBefore_), spoolNotBefore_);
    }
    if (wake) {
      changed_.wait_until(lock, *wake);
    } else {
      changed_.wait(lock);
    }
  }
}

std::vector<std::string> QENSpanReporter::takeBatch(std::unique_lock<std::mutex>& lock) {
  std::vector<std::string> encodedSpans;
  std::size_t bytes = 0;
  while (!queue_.empty() && encodedSpans.size() < options_.maximumBatchSpans &&
         (encodedSpans.empty() || bytes < options_.maximumBatchBytes)) {
    const std::shared_ptr<QENThrift::Span> span = std::move(queue_.front());
    queue_.pop_front();
    lock.unlock();  // encoding needs no lock
    std::string encoded;
    const bool filtered =
        QENCallHost("A tag filter", [&] { encoded = encoding_.encodeSpan(*span); });
    lock.lock();
    if (!filtered) {
      ++counters_.droppedHostFault;
      continue;
    }
    bytes += encoded.size();
    encodedSpans.push_back(std::move(encoded));
  }
  return encodedSpans;
}

void QENSpanReporter::persist(const QENEncodedBatch& batch, QENDeliveryGate::Ticket ticket) {
  if (!options_.spool->append(batch)) {
    return;
  }
  std::unique_lock lock(mutex_);
  spoolWaiting_ = true;
  // Withdrawn while it was written (and perhaps given again since): the clear may have come first.
  if (gate_.verdictFor(ticket) == QENDeliveryGate::Verdict::kRefused) {
    lock.unlock();
    options_.spool->clear();
  }
}

// One attempt at the oldest spooled batch; a batch that fails waits out the back-off while new
// spans are persisted.
void QENSpanReporter::deliverFromSpool() {
  const QENDeliveryGate::Ticket ticket = [this] {
    const std::lock_guard guard(mutex_);
    return gate_.ticket();
  }();
  const std::optional<QENSpanSpool::Batch> batch = options_.spool->oldest();
  if (!batch) {
    const std::lock_guard guard(mutex_);
    spoolWaiting_ = false;
    return;
  }
  if (!admitted(ticket, false)) {
    return;  // it waits in the spool, or went with the spool's clearing
  }
  if (batch->attempts > 0) {
    const std::lock_guard guard(mutex_);
    counters_.retried += batch->spanCount;
  }
  options_.spool->recordAttempt(batch->id);
  const Outcome outcome = post(*batch, ticket, false);
  const bool reshaped =
      (outcome == Outcome::kTooLarge || outcome == Outcome::kUnsupportedEncoding) &&
      reshapeSpooled(*batch, outcome);
  const bool stays = outcome == Outcome::kCutOff || outcome == Outcome::kRetry ||
                     outcome == Outcome::kSlowDown || outcome == Outcome::kHeldBack;
  // A batch the spool no longer has was counted by whatever removed it (a refusal's clearing).
  if (reshaped || (!stays && !options_.spool->remove(batch->id))) {
    return;
  }
  const std::lock_guard guard(mutex_);
  switch (outcome) {
    case Outcome::kDelivered:
      counters_.delivered += batch->spanCount;
      spoolBackoff_->reset();
      break;
    case Outcome::kTooLarge:
      counters_.droppedTooLarge += batch->spanCount;
      break;
    case Outcome::kRefused:
    case Outcome::kUnsupportedEncoding:
      counters_.droppedClientError += batch->spanCount;
      break;
    case Outcome::kCutOff:  // the deadline passed: the batch stays for a later process
      spoolNotBefore_ = Clock::time_point::max();
      break;
    case Outcome::kHeldBack:  // it goes when the gate opens again, or with the spool's clearing
      break;
    case Outcome::kTransportFailed:
      counters_.droppedHostFault += batch->spanCount;
      break;
    case Outcome::kRetry:
    case Outcome::kSlowDown:
      spoolNotBefore_ = Clock::now() + pauseAfter(outcome, *spoolBackoff_);
      break;
  }
}

bool QENSpanReporter::reshapeSpooled(const QENSpanSpool::Batch& batch, Outcome outcome) {
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

bool QENSpanReporter::stopGzipping() {
  if (!encoding_.gzip) {
    return false;
  }
  encoding_.gzip = false;
  logReporterError("The collector at " + QENSpanScrubber::loggableURL(options_.collectorURL) +
                       " does not read gzip bodies (415); this reporter sends them uncompressed",
                   __LINE__);
  return true;
}

// Never shorter than the back-off: a collector that keeps answering "Retry-After: 0" must not
// make the reporter post in a tight loop.
milliseconds QENSpanReporter::pauseAfter(Outcome outcome, QENBackoff& backoff) const {
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

// A batch too large goes again in halves, down to single spans; a gzip body the collector cannot
// read goes again uncompressed, and so does every later one.
void QENSpanReporter::deliver(std::span<const std::string> encodedSpans,
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
    std::unique_lock lock(mutex_);
    std::uint64_t* droppedFor = nullptr;
    switch (outcome) {
      case Outcome::kDelivered:
        counters_.delivered += batch.spanCount;
        return;
      case Outcome::kTooLarge:
        droppedFor = &counters_.droppedTooLarge;
        break;
      case Outcome::kRefused:
      case Outcome::kUnsupportedEncoding:
        droppedFor = &counters_.droppedClientError;
        break;
      case Outcome::kCutOff:
        droppedFor = &counters_.droppedShutDown;
        break;
      case Outcome::kTransportFailed:
        droppedFor = &counters_.droppedHostFault;
        break;
      case Outcome::kHeldBack:
        droppedFor = gate_.verdictFor(ticket) == QENDeliveryGate::Verdict::kRefused
                         ? &counters_.droppedNoConsent
                         : &counters_.droppedShutDown;  // paused until the deadline
        break;
      case Outcome::kRetry:
      case Outcome::kSlowDown:
        if (attempt >= options_.maximumRetries) {
          droppedFor = &counters_.droppedGaveUp;
        } else if (!waitForRetry(lock, pauseAfter(outcome, backoff))) {
          droppedFor = &counters_.droppedShutDown;
        }
        break;
    }
    if (droppedFor != nullptr) {
      *droppedFor += batch.spanCount;
      return;
    }
    counters_.retried += batch.spanCount;
  }
}

// Waits `backoff`, cut short by the deadline; the gate is passed again by the post that follows.
bool QENSpanReporter::waitForRetry(std::unique_lock<std::mutex>& lock, milliseconds backoff) {
  const auto until = Clock::now() + backoff;
  while (!deadline_.hasPassed() && Clock::now() < until) {
    changed_.wait_until(lock, std::min(until, deadline_.time()));
  }
  return !deadline_.hasPassed();
}

bool QENSpanReporter::admitted(QENDeliveryGate::Ticket ticket, bool waitWhilePaused) {
  std::unique_lock lock(mutex_);
  for (;;) {
    const QENDeliveryGate::Verdict verdict = gate_.verdictFor(ticket);
    if (verdict != QENDeliveryGate::Verdict::kPaused || !waitWhilePaused || deadline_.hasPassed()) {
      return verdict == QENDeliveryGate::Verdict::kOpen;
    }
    if (deadline_.time() == Clock::time_point::max()) {
      changed_.wait(lock);
    } else {
      changed_.wait_until(lock, deadline_.time());
    }
  }
}

QENSpanReporter::Outcome QENSpanReporter::post(const QENEncodedBatch& batch,
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
              [&] { outcome = transport_->post(batch.body, headers, deadline_); });
  return outcome;
}
