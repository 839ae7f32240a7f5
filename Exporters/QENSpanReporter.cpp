#include "QENSpanReporter.h"

#include <curl/curl.h>

#include <algorithm>

#include "QENZipkinThriftEncoder.h"
#include "QENZipkinV2JSONEncoder.h"

namespace {

using Clock = std::chrono::steady_clock;

void initialiseCurlOnce() {
  static const bool initialised = curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
  (void)initialised;
}

std::size_t discardResponse(char*, std::size_t size, std::size_t count, void*) {
  return size * count;
}

// Ends a transfer once shutdown's time is up.
int abortPastDeadline(void* reporterDeadline, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
  const auto* deadline = static_cast<const std::atomic<Clock::rep>*>(reporterDeadline);
  return Clock::now().time_since_epoch().count() >= deadline->load() ? 1 : 0;
}

std::string encode(const QENSpanReporter::SpanList& spans, QENSpanReporterEncoding encoding) {
  if (encoding == QENSpanReporterEncoding::kZipkinV1Thrift) {
    const auto bytes = QENZipkinThriftEncoder::encodeSpans(spans);
    return std::string(bytes.begin(), bytes.end());
  }
  return QENZipkinV2JSONEncoder::encodeSpans(spans);
}

std::size_t encodedSize(const std::shared_ptr<QENThrift::Span>& span,
                        QENSpanReporterEncoding encoding) {
  return encode({span}, encoding).size();
}

}  // namespace

QENSpanReporter::QENSpanReporter(QENSpanReporterOptions options) : options_(std::move(options)) {
  initialiseCurlOnce();
  worker_ = std::thread([this] { run(); });
}

QENSpanReporter::~QENSpanReporter() {
  shutdown();
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
        ++counters_.dropped;
        continue;
      }
      if (queue_.size() >= options_.maximumQueuedSpans) {
        queue_.pop_front();  // the oldest make room
        ++counters_.dropped;
      }
      queue_.push_back(span);
    }
  }
  changed_.notify_one();
}

bool QENSpanReporter::shutdown(std::chrono::milliseconds limit) {
  {
    const std::lock_guard guard(mutex_);
    if (!stopping_) {
      stopping_ = true;
      deadline_.store((Clock::now() + limit).time_since_epoch().count());
    }
  }
  changed_.notify_all();
  if (worker_.joinable()) {
    worker_.join();
  }
  const std::lock_guard guard(mutex_);
  return counters_.sent == counters_.accepted;
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
    changed_.wait_for(lock, options_.flushInterval,
                      [&] { return stopping_ || queue_.size() >= options_.maximumBatchSpans; });
    if (stopping_ && (queue_.empty() || pastDeadline())) {
      counters_.dropped += queue_.size();  // out of time
      queue_.clear();
      return;
    }
    if (queue_.empty()) {
      continue;
    }
    const SpanList batch = takeBatch(lock);
    lock.unlock();
    deliver(batch);
    lock.lock();
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
    bytes += encodedSize(batch.back(), options_.encoding);
    lock.lock();
  }
  return batch;
}

void QENSpanReporter::deliver(const SpanList& batch) {
  const std::string body = encode(batch, options_.encoding);
  std::chrono::milliseconds backoff = options_.initialBackoff;
  for (int attempt = 0;; ++attempt) {
    const Outcome outcome = post(body);
    std::unique_lock lock(mutex_);
    if (outcome == Outcome::kSent) {
      counters_.sent += batch.size();
      return;
    }
    const bool retry = outcome == Outcome::kRetry && attempt < options_.maximumRetries &&
                       waitForRetry(lock, backoff);
    if (!retry) {
      counters_.dropped += batch.size();
      return;
    }
    counters_.retried += batch.size();
    backoff = std::min(backoff * 2, options_.maximumBackoff);
  }
}

bool QENSpanReporter::waitForRetry(std::unique_lock<std::mutex>& lock,
                                   std::chrono::milliseconds backoff) {
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
  curl_easy_setopt(curl, CURLOPT_NOPROGRESS, 0L);
  curl_easy_setopt(curl, CURLOPT_XFERINFOFUNCTION, abortPastDeadline);
  curl_easy_setopt(curl, CURLOPT_XFERINFODATA, &deadline_);
  const CURLcode result = curl_easy_perform(curl);
  long status = 0;
  curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
  curl_slist_free_all(headers);
  curl_easy_cleanup(curl);
  if (result == CURLE_OK && status >= 200 && status < 300) {
    return Outcome::kSent;
  }
  if (result == CURLE_OK && status >= 400 && status < 500) {
    return Outcome::kGiveUp;  // the collector will not take this batch, however often it is sent
  }
  return Outcome::kRetry;  // no connection, no answer, or a server error
}
