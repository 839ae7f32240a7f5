#include "QENSpanReporter.h"

#include <curl/curl.h>

#include <algorithm>

#include "QENAssert.h"
#include "QENFoundation/QENFoundationDevLogger.h"
#include "QENGzip.h"
#include "QENOTLPJSONEncoder.h"
#include "QENPerformanceLoggerVersion.h"
#include "QENZipkinThriftEncoder.h"
#include "QENZipkinV2JSONEncoder.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

const std::string& userAgent() {
  static const std::string agent =
      std::string("QENPerformanceLogger/") + QENPerformanceLoggerVersionString;
  return agent;
}

constexpr const char* kConstructor = "QENSpanReporter::QENSpanReporter(QENSpanReporterOptions)";
// How long a transfer waits on its sockets before it looks at the deadline again, should no
// wake-up reach it: a bound, not a poll interval (shutdown wakes it at once).
constexpr milliseconds kLongestPoll{1000};

void initialiseCurlOnce() {
  static const bool initialised = curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
  (void)initialised;
}

std::size_t discardResponse(char*, std::size_t size, std::size_t count, void*) {
  return size * count;
}

void logReporterError(const std::string& message, int line) {
  QENFoundationDevLogger::sharedInstance().remote().logErrorWithMessage(
      message, true, 1, "QENSpanReporter", nullptr, line, __FILE__);
}

std::string encode(const QENSpanReporter::SpanList& spans, const QENSpanReporterOptions& options) {
  switch (options.encoding) {
    case QENSpanReporterEncoding::kZipkinV1Thrift: {
      const auto bytes =
          QENZipkinThriftEncoder::encodeSpans(spans, options.thriftForm, options.reading);
      return std::string(bytes.begin(), bytes.end());
    }
    case QENSpanReporterEncoding::kOTLPJSON:
      return QENOTLPJSONEncoder::encodeSpans(spans, options.reading);
    case QENSpanReporterEncoding::kZipkinV2JSON:
    default:
      return QENZipkinV2JSONEncoder::encodeSpans(spans, options.reading);
  }
}

std::size_t encodedSize(const std::shared_ptr<QENThrift::Span>& span,
                        const QENSpanReporterOptions& options) {
  return encode({span}, options).size();
}

const char* contentTypeOf(QENSpanReporterEncoding encoding) {
  return encoding == QENSpanReporterEncoding::kZipkinV1Thrift ? "application/x-thrift"
                                                              : "application/json";
}

// Replaces a setting below its floor by the floor, reporting it.
template <class Value>
void raiseToFloor(Value& value, Value floor, const char* conditionText) {
  QENAssert(value >= floor, kConstructor, "Invalid parameter not satisfying: %s", conditionText);
  value = std::max(value, floor);
}

}  // namespace

struct QENSpanReporter::Transfers {
  Transfers() : multi(curl_multi_init()) {}
  ~Transfers() { curl_multi_cleanup(multi); }
  Transfers(const Transfers&) = delete;
  Transfers& operator=(const Transfers&) = delete;

  CURLM* const multi;
};

QENSpanReporterOptions QENSpanReporter::validated(QENSpanReporterOptions options) {
  raiseToFloor<std::size_t>(options.maximumQueuedSpans, 1, "maximumQueuedSpans >= 1");
  raiseToFloor<std::size_t>(options.maximumBatchSpans, 1, "maximumBatchSpans >= 1");
  raiseToFloor<std::size_t>(options.maximumBatchBytes, 1, "maximumBatchBytes >= 1");
  raiseToFloor(options.flushInterval, milliseconds(0), "flushInterval >= 0");
  raiseToFloor(options.maximumRetries, 0, "maximumRetries >= 0");
  raiseToFloor(options.initialBackoff, milliseconds(0), "initialBackoff >= 0");
  raiseToFloor(options.maximumBackoff, options.initialBackoff, "maximumBackoff >= initialBackoff");
  raiseToFloor(options.requestTimeout, milliseconds(1), "requestTimeout >= 1 ms");
  raiseToFloor(options.destructionShutdownLimit, milliseconds(0), "destructionShutdownLimit >= 0");
  QENAssert(!options.collectorURL.empty(), kConstructor, "Invalid parameter not satisfying: %s",
            "collectorURL is not empty");
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
      spoolWaiting_(options_.spool != nullptr),  // what an earlier process left goes first
      spoolBackoff_(options_.initialBackoff) {
  initialiseCurlOnce();
  transfers_ = std::make_unique<Transfers>();
  worker_ = std::thread([this] { run(); });
}

QENSpanReporter::~QENSpanReporter() {
  shutdown(options_.destructionShutdownLimit);
}

void QENSpanReporter::report(const SpanList& spans) {
  {
    const std::lock_guard guard(mutex_);
    for (const auto& span : spans) {
      if (span == nullptr) {
        continue;
      }
      ++counters_.accepted;
      if (stopping_) {
        ++counters_.droppedShutDown;
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
    const Clock::rep deadline =
        (Clock::now() + std::max(limit, milliseconds(0))).time_since_epoch().count();
    stopping_ = true;
    deadline_.store(std::min(deadline_.load(), deadline));
  }
  changed_.notify_all();
  curl_multi_wakeup(transfers_->multi);
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
        {"client error", counters.droppedClientError},
        {"gave up", counters.droppedGaveUp},
        {"shut down", counters.droppedShutDown},
        {"spool full", counters.droppedSpoolFull},
        {"spool expired", counters.droppedSpoolExpired},
        {"spool write failed", counters.droppedSpoolWriteFailed}};
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
    options_.didStop(counters);
  }
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
  }
  return counters;
}

bool QENSpanReporter::pastDeadline() const {
  return Clock::now().time_since_epoch().count() >= deadline_.load();
}

void QENSpanReporter::run() {
  std::unique_lock lock(mutex_);
  for (;;) {
    waitForWork(lock);
    const auto now = Clock::now();
    if (stopping_ && (pastDeadline() || (queue_.empty() && !spoolWaiting_))) {
      counters_.droppedShutDown += queue_.size();  // out of time; the spool keeps its batches
      queue_.clear();
      return;
    }
    // A due batch is persisted (or, without a spool, sent), then one spooled batch is sent: under
    // a steady stream of spans, delivery still takes its turn.
    bool worked = false;
    if (!queue_.empty() && (stopping_ || queueReady(now))) {
      const SpanList batch = takeBatch(lock);
      lock.unlock();
      options_.spool != nullptr ? persist(batch) : deliver(batch);
      lock.lock();
      worked = true;
    }
    if (spoolReady(Clock::now())) {
      lock.unlock();
      deliverFromSpool();
      lock.lock();
      worked = true;
    }
    if (!worked && stopping_) {  // a spooled batch waits out its back-off, within the deadline
      changed_.wait_until(
          lock, std::min(spoolNotBefore_, Clock::time_point(Clock::duration(deadline_.load()))));
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
    if (stopping_ || queueReady(now) || spoolReady(now)) {
      return;
    }
    std::optional<Clock::time_point> wake;
    if (!queue_.empty()) {
      wake = oldestQueuedAt_ + options_.flushInterval;
    }
    if (spoolWaiting_) {
      wake = std::min(wake.value_or(spoolNotBefore_), spoolNotBefore_);
    }
    if (wake) {
      changed_.wait_until(lock, *wake);
    } else {
      changed_.wait(lock);
    }
  }
}

QENSpanReporter::SpanList QENSpanReporter::takeBatch(std::unique_lock<std::mutex>& lock) {
  SpanList batch;
  std::size_t bytes = 0;
  while (!queue_.empty() && batch.size() < options_.maximumBatchSpans &&
         (batch.empty() || bytes < options_.maximumBatchBytes)) {
    batch.push_back(std::move(queue_.front()));
    queue_.pop_front();
    lock.unlock();  // encoding a span to size it needs no lock
    bytes += encodedSize(batch.back(), options_);
    lock.lock();
  }
  return batch;
}

QENSpanSpool::Batch QENSpanReporter::encodeBatch(const SpanList& spans,
                                                 const QENSpanReporterOptions& options) {
  QENSpanSpool::Batch encoded;
  encoded.body = encode(spans, options);
  if (options.gzip) {
    encoded.body = QENGzip::compress(encoded.body);
  }
  encoded.gzipped = options.gzip;
  encoded.contentType = contentTypeOf(options.encoding);
  encoded.spanCount = spans.size();
  return encoded;
}

void QENSpanReporter::persist(const SpanList& batch) {
  if (options_.spool->append(encodeBatch(batch, options_))) {
    const std::lock_guard guard(mutex_);
    spoolWaiting_ = true;
  }
}

// One attempt at the oldest spooled batch; a batch that fails waits out the back-off while new
// spans are persisted.
void QENSpanReporter::deliverFromSpool() {
  const std::optional<QENSpanSpool::Batch> batch = options_.spool->oldest();
  if (!batch) {
    const std::lock_guard guard(mutex_);
    spoolWaiting_ = false;
    return;
  }
  if (batch->attempts > 0) {
    const std::lock_guard guard(mutex_);
    counters_.retried += batch->spanCount;
  }
  options_.spool->recordAttempt(batch->id);
  const Outcome outcome = post(*batch);
  if (outcome == Outcome::kDelivered || outcome == Outcome::kRefused) {
    options_.spool->remove(batch->id);
  }
  const std::lock_guard guard(mutex_);
  switch (outcome) {
    case Outcome::kDelivered:
      counters_.delivered += batch->spanCount;
      spoolBackoff_ = options_.initialBackoff;
      break;
    case Outcome::kRefused:
      counters_.droppedClientError += batch->spanCount;
      break;
    case Outcome::kCutOff:  // the deadline passed: the batch stays for a later process
      spoolNotBefore_ = Clock::time_point::max();
      break;
    case Outcome::kRetry:
      spoolNotBefore_ = Clock::now() + spoolBackoff_;
      spoolBackoff_ = std::min(spoolBackoff_ * 2, options_.maximumBackoff);
      break;
  }
}

void QENSpanReporter::deliver(const SpanList& batch) {
  const QENSpanSpool::Batch encoded = encodeBatch(batch, options_);
  milliseconds backoff = options_.initialBackoff;
  for (int attempt = 0;; ++attempt) {
    const Outcome outcome = post(encoded);
    std::unique_lock lock(mutex_);
    std::uint64_t* droppedFor = nullptr;
    switch (outcome) {
      case Outcome::kDelivered:
        counters_.delivered += batch.size();
        return;
      case Outcome::kRefused:
        droppedFor = &counters_.droppedClientError;
        break;
      case Outcome::kCutOff:
        droppedFor = &counters_.droppedShutDown;
        break;
      case Outcome::kRetry:
        if (attempt >= options_.maximumRetries) {
          droppedFor = &counters_.droppedGaveUp;
        } else if (!waitForRetry(lock, backoff)) {
          droppedFor = &counters_.droppedShutDown;
        }
        break;
    }
    if (droppedFor != nullptr) {
      *droppedFor += batch.size();
      return;
    }
    counters_.retried += batch.size();
    backoff = std::min(backoff * 2, options_.maximumBackoff);
  }
}

bool QENSpanReporter::waitForRetry(std::unique_lock<std::mutex>& lock, milliseconds backoff) {
  const auto until = Clock::now() + backoff;
  while (!pastDeadline() && Clock::now() < until) {
    const auto deadline = Clock::time_point(Clock::duration(deadline_.load()));
    changed_.wait_until(lock, std::min(until, deadline));
  }
  return !pastDeadline();
}

curl_slist* QENSpanReporter::requestHeaders(const QENSpanSpool::Batch& batch) const {
  curl_slist* headers = curl_slist_append(nullptr, ("Content-Type: " + batch.contentType).c_str());
  if (batch.gzipped) {
    headers = curl_slist_append(headers, "Content-Encoding: gzip");
  }
  headers = curl_slist_append(headers, "Expect:");  // no 100-continue round trip
  for (const auto& [name, value] : options_.headers) {
    headers = curl_slist_append(headers, (name + ": " + value).c_str());
  }
  return headers;
}

QENSpanReporter::Outcome QENSpanReporter::post(const QENSpanSpool::Batch& batch) {
  CURL* curl = curl_easy_init();
  if (curl == nullptr) {
    return Outcome::kRetry;
  }
  curl_slist* headers = requestHeaders(batch);
  curl_easy_setopt(curl, CURLOPT_URL, options_.collectorURL.c_str());
  curl_easy_setopt(curl, CURLOPT_POST, 1L);
  curl_easy_setopt(curl, CURLOPT_POSTFIELDS, batch.body.data());
  curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(batch.body.size()));
  curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
  curl_easy_setopt(curl, CURLOPT_USERAGENT, userAgent().c_str());
  curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, static_cast<long>(options_.requestTimeout.count()));
  curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, discardResponse);

  CURLM* multi = transfers_->multi;
  curl_multi_add_handle(multi, curl);
  int running = 1;
  bool cutOff = false;
  while (curl_multi_perform(multi, &running) == CURLM_OK && running > 0) {
    if (pastDeadline()) {
      cutOff = true;
      break;
    }
    const auto untilDeadline = std::chrono::duration_cast<milliseconds>(
        Clock::time_point(Clock::duration(deadline_.load())) - Clock::now());
    const auto wait = std::clamp(untilDeadline, milliseconds(0), kLongestPoll);
    curl_multi_poll(multi, nullptr, 0, static_cast<int>(wait.count()) + 1, nullptr);
  }
  CURLcode result = CURLE_FAILED_INIT;
  int remaining = 0;
  while (const CURLMsg* message = curl_multi_info_read(multi, &remaining)) {
    if (message->msg == CURLMSG_DONE && message->easy_handle == curl) {
      result = message->data.result;
    }
  }
  long status = 0;
  curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
  curl_multi_remove_handle(multi, curl);
  curl_slist_free_all(headers);
  curl_easy_cleanup(curl);

  if (cutOff) {
    return Outcome::kCutOff;
  }
  if (result == CURLE_OK && status >= 200 && status < 300) {
    return Outcome::kDelivered;
  }
  if (result == CURLE_OK && status >= 300 && status < 400) {
    logReporterError("The collector at " + options_.collectorURL + " answered " +
                         std::to_string(status) +
                         ": a collector URL that redirects is a configuration error; the batch "
                         "is dropped",
                     __LINE__);
    return Outcome::kRefused;
  }
  if (result == CURLE_OK && status >= 400 && status < 500) {
    return Outcome::kRefused;  // the collector will not take this batch, however often it is sent
  }
  return Outcome::kRetry;  // no connection, no (whole) answer, or a server error
}
