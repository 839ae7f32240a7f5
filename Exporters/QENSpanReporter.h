#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "QENThrift/Span.h"

enum class QENSpanReporterEncoding { kZipkinV2JSON, kZipkinV1Thrift };

struct QENSpanReporterOptions {
  // Where batches are posted, e.g. "http://localhost:9411/api/v2/spans" (or /api/v1/spans for
  // Thrift).
  std::string collectorURL;
  QENSpanReporterEncoding encoding = QENSpanReporterEncoding::kZipkinV2JSON;
  // Past this many waiting spans the oldest are dropped.
  std::size_t maximumQueuedSpans = 10000;
  std::size_t maximumBatchSpans = 100;
  // A batch stops growing once its spans' encoded size reaches this.
  std::size_t maximumBatchBytes = 512 * 1024;
  // How long spans may wait for a batch to fill.
  std::chrono::milliseconds flushInterval{1000};
  // Attempts after the first, for connection errors and 5xx answers; 4xx answers are final.
  int maximumRetries = 4;
  std::chrono::milliseconds initialBackoff{100};
  std::chrono::milliseconds maximumBackoff{5000};
  std::chrono::milliseconds requestTimeout{5000};
};

// What happened to the spans handed to a reporter. Once it has shut down,
// accepted == sent + dropped.
struct QENSpanReporterCounters {
  std::uint64_t accepted = 0;  // handed to report
  std::uint64_t sent = 0;      // in a batch the collector accepted (2xx)
  std::uint64_t retried = 0;   // sent again after a failed attempt, counted per span and attempt
  std::uint64_t dropped = 0;   // pushed out of a full queue, refused (4xx), out of retries, or
                               // still waiting when shutdown ran out of time
};

// Delivers spans to a Zipkin-compatible collector by HTTP POST (libcurl) from a thread of its
// own. report never blocks on the network: it queues and returns. Batches are cut by count and
// encoded size and sent in the chosen encoding; connection errors and 5xx answers are retried
// with exponential back-off (bounded), 4xx answers are final. shutdown (or destruction) sends
// what is queued within a time limit and then stops, abandoning what is left.
class QENSpanReporter {
 public:
  using SpanList = std::vector<std::shared_ptr<QENThrift::Span>>;

  explicit QENSpanReporter(QENSpanReporterOptions options);
  ~QENSpanReporter();
  QENSpanReporter(const QENSpanReporter&) = delete;
  QENSpanReporter& operator=(const QENSpanReporter&) = delete;

  void report(const SpanList& spans);
  // Sends what is queued, for at most `limit`; returns whether everything accepted was sent.
  bool shutdown(std::chrono::milliseconds limit = std::chrono::seconds(5));
  QENSpanReporterCounters counters() const;

 private:
  enum class Outcome { kSent, kRetry, kGiveUp };

  void run();
  SpanList takeBatch(std::unique_lock<std::mutex>& lock);
  void deliver(const SpanList& batch);
  Outcome post(const std::string& body);
  bool pastDeadline() const;
  // Waits `backoff`, cut short by shutdown's deadline; false once that has passed.
  bool waitForRetry(std::unique_lock<std::mutex>& lock, std::chrono::milliseconds backoff);

  const QENSpanReporterOptions options_;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<std::shared_ptr<QENThrift::Span>> queue_;
  QENSpanReporterCounters counters_;
  bool stopping_ = false;
  // When shutdown's time is up, in steady-clock ticks; the largest value until shutdown.
  std::atomic<std::chrono::steady_clock::rep> deadline_{
      std::chrono::steady_clock::duration::max().count()};
  std::thread worker_;
};
