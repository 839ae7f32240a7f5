#pragma once

#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "QENSpanReporterOptions.h"
#include "QENThrift/Span.h"

class QENBatchDelivery;
class QENSpanBatcher;
struct QENSpanReporterState;

// Delivers spans to a Zipkin-compatible collector through its transport (HTTP POST with libcurl
// unless the host brings another) from a thread of its own. report never waits on the network: it
// queues and returns. Batches are cut by count and encoded size and sent in the chosen encoding;
// connection errors and 5xx answers are retried with exponential back-off (bounded), 429 and 503
// after the collector's Retry-After (bounded); other 3xx and 4xx answers are final.
//
// shutdown sends what is queued within a time limit, cuts a transfer still running when the
// limit is reached, and stops. It may be called any number of times, from any threads at once:
// every call returns within the shortest limit given so far plus a few milliseconds (the time to
// finish encoding a batch and to abandon a transfer). The destructor calls it with
// destructionShutdownLimit. No span is lost silently: each one that is not delivered is counted
// by cause, logged, and reported to didStop.
//
// Three parts do the work: QENSpanBatcher (what waits, and when it makes a batch), QENDeliveryGate
// (whether spans may go now) and QENBatchDelivery (what each outcome of a post leads to).
class QENSpanReporter {
 public:
  using SpanList = std::vector<std::shared_ptr<QENThrift::Span>>;

  explicit QENSpanReporter(QENSpanReporterOptions options);
  // A reporter whose last owner never waits for it: letting it go returns at once, and its
  // shutdown (within destructionShutdownLimit) runs on a thread of its own. For owners on an app's
  // main thread (the C interface's release and Java's close use it), where a wait on the network
  // would freeze the app. A process that exits meanwhile ends that shutdown where it stands.
  static std::shared_ptr<QENSpanReporter> makeReleasedInBackground(QENSpanReporterOptions options);
  ~QENSpanReporter();
  QENSpanReporter(const QENSpanReporter&) = delete;
  QENSpanReporter& operator=(const QENSpanReporter&) = delete;

  void report(const SpanList& spans);
  // Sends what is queued, for at most `limit`; returns whether everything accepted was delivered.
  bool shutdown(std::chrono::milliseconds limit = std::chrono::seconds(5));
  QENSpanReporterCounters counters() const;
  // Takes effect at once, from any thread; a request already under way ends as it would have.
  void setConsent(QENTelemetryConsent consent);
  void setDeviceConditions(const QENDeviceConditions& conditions);

 private:
  using Clock = std::chrono::steady_clock;

  void run();
  void waitForWork(std::unique_lock<std::mutex>& lock);
  // Whether the queue's next batch can be handled: persisted, or else sent.
  bool queueCanMove() const;
  // Takes the spans of the next batch off the queue, each encoded (once) to size the batch.
  std::vector<std::string> takeBatch(std::unique_lock<std::mutex>& lock);
  void persist(const std::vector<std::string>& encodedSpans, QENDeliveryGate::Ticket ticket);
  void reportStop();

  const QENSpanReporterOptions options_;
  // The lock, the counters, the gate and the deadline, shared with the two parts below.
  const std::unique_ptr<QENSpanReporterState> state_;
  const std::unique_ptr<QENSpanBatcher> batcher_;
  const std::unique_ptr<QENBatchDelivery> delivery_;
  std::mutex joinMutex_;
  std::once_flag stopReported_;
  std::thread worker_;
};
