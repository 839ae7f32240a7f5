#include "QENSpanReporter.h"

#include <curl/curl.h>

#include <algorithm>

#include "QENAssert.h"
#include "QENFoundation/QENFoundationDevLogger.h"
#include "QENOTLPJSONEncoder.h"
#include "QENZipkinThriftEncoder.h"
#include "QENZipkinV2JSONEncoder.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

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
  return options;
}

QENSpanReporter::QENSpanReporter(QENSpanReporterOptions options)
    : options_(validated(std::move(options))) {
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
  const std::lock_guard guard(mutex_);
  return counters_.delivered == counters_.accepted;
}

void QENSpanReporter::reportStop() {
  const QENSpanReporterCounters counters = this->counters();
  if (counters.dropped() > 0) {
    logReporterError("QENSpanReporter stopped with " + std::to_string(counters.dropped()) + " of " +
                         std::to_string(counters.accepted) + " spans undelivered (queue full " +
                         std::to_string(counters.droppedQueueFull) + ", client error " +
                         std::to_string(counters.droppedClientError) + ", gave up " +
                         std::to_string(counters.droppedGaveUp) + ", shut down " +
                         std::to_string(counters.droppedShutDown) + ")",
                     __LINE__);
  }
  if (options_.didStop) {
    options_.didStop(counters);
  }
}

QENSpanReporterCounters QENSpanReporter::counters() const {
  const std::lock_guard guard(mutex_);
  return counters_;
}

bool QENSpanReporter::pastDeadline() const {
  return Clock::now().time_since_epoch().count() >= deadline_.load();
}

void QENSpanReporter::run() {
  std::unique_lock lock(mutex_);
  for (;;) {
    waitForWork(lock);
    if (stopping_ && (queue_.empty() || pastDeadline())) {
      counters_.droppedShutDown += queue_.size();  // out of time
      queue_.clear();
      return;
    }
    const SpanList batch = takeBatch(lock);
    lock.unlock();
    deliver(batch);
    lock.lock();
  }
}

// Returns once there is a batch to send or the reporter stops. An empty queue is waited on with
// no timer at all, so an idle reporter costs nothing whatever its flush interval.
void QENSpanReporter::waitForWork(std::unique_lock<std::mutex>& lock) {
  changed_.wait(lock, [&] { return stopping_ || !queue_.empty(); });
  if (!stopping_ && queue_.size() < options_.maximumBatchSpans) {
    changed_.wait_for(lock, options_.flushInterval,
                      [&] { return stopping_ || queue_.size() >= options_.maximumBatchSpans; });
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

void QENSpanReporter::deliver(const SpanList& batch) {
  const std::string body = encode(batch, options_);
  milliseconds backoff = options_.initialBackoff;
  for (int attempt = 0;; ++attempt) {
    const Outcome outcome = post(body);
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

QENSpanReporter::Outcome QENSpanReporter::post(const std::string& body) {
  CURL* curl = curl_easy_init();
  if (curl == nullptr) {
    return Outcome::kRetry;
  }
  const bool thrift = options_.encoding == QENSpanReporterEncoding::kZipkinV1Thrift;
  curl_slist* headers = curl_slist_append(
      nullptr, thrift ? "Content-Type: application/x-thrift" : "Content-Type: application/json");
  headers = curl_slist_append(headers, "Expect:");  // no 100-continue round trip
  curl_easy_setopt(curl, CURLOPT_URL, options_.collectorURL.c_str());
  curl_easy_setopt(curl, CURLOPT_POST, 1L);
  curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body.data());
  curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
  curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
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
