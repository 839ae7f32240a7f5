#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "QENCollectorTransport.h"
#include "QENDeliveryDeadline.h"
#include "QENDeliveryGate.h"
#include "QENSpanEncoding.h"
#include "QENSpanSpool.h"
#include "QENThrift/Span.h"

// What happened to the spans handed to a reporter. Without a spool, once it has stopped,
// accepted == delivered + dropped(), and delivered is what the collector acknowledged. With a
// spool, accepted == persisted + droppedQueueFull + droppedOverReportCap + droppedRateLimited +
// droppedShutDown + droppedSpoolWriteFailed + droppedNoConsent + what the tag filter lost, and what
// was persisted is delivered, now or by a later process, or dropped by the spool's bounds or its
// clearing; delivered then also counts spans that earlier processes persisted.
class QENBackoff;
class QENTokenBucket;

struct QENSpanReporterCounters {
  std::uint64_t accepted = 0;   // handed to report
  std::uint64_t persisted = 0;  // written to the spool
  std::uint64_t delivered = 0;  // in a batch the collector answered with 2xx
  std::uint64_t retried = 0;    // sent again after an attempt, per span and attempt (a spooled
                                // batch counts when it was attempted before, in any process)
  // Undelivered, by cause:
  std::uint64_t droppedQueueFull = 0;      // pushed out of a full queue by newer spans
  std::uint64_t droppedOverReportCap = 0;  // past maximumSpansPerReport in one report
  std::uint64_t droppedRateLimited = 0;    // past maximumSpansPerMinute
  std::uint64_t droppedClientError = 0;    // refused with a 3xx or 4xx answer but 429 (final)
  std::uint64_t droppedTooLarge = 0;       // a span alone still too large for the collector
  std::uint64_t droppedGaveUp = 0;         // connection errors, 429 or 5xx answers past the retries
  std::uint64_t droppedShutDown = 0;       // queued, waiting to retry or in flight when the
                                           // reporter's time ran out, or reported after it stopped
                                           // (with a spool: only what was not yet persisted)
  std::uint64_t droppedSpoolFull = 0;      // pushed out of the spool by its byte bound
  std::uint64_t droppedSpoolExpired = 0;   // older than the spool's age bound
  std::uint64_t droppedSpoolWriteFailed = 0;  // not written: disk full, read-only, no spool
  std::uint64_t droppedNoConsent = 0;     // reported, queued, or taken for a post (a first try, a
                                          // retry, a split's half) when consent was refused,
                                          // never persisted
  std::uint64_t droppedSpoolCleared = 0;  // persisted, then deleted when consent was not granted
  std::uint64_t droppedHostFault = 0;     // lost to host code that threw on the reporter's thread:
                                          // the tag filter (that span), the transport (the batch)

  std::uint64_t dropped() const {
    return droppedQueueFull + droppedOverReportCap + droppedRateLimited + droppedClientError +
           droppedTooLarge + droppedGaveUp + droppedShutDown + droppedSpoolFull +
           droppedSpoolExpired + droppedSpoolWriteFailed + droppedNoConsent + droppedSpoolCleared +
           droppedHostFault;
  }
};

// Every setting has a floor. A value below it is reported through the assertion facility and
// the floor is used instead, so that no setting can make the reporter crash, hang or spin.
struct QENSpanReporterOptions {
  // Where batches are posted, e.g. "http://localhost:9411/api/v2/spans" (or /api/v1/spans for
  // Thrift, or an OpenTelemetry collector's "http://localhost:4318/v1/traces" for OTLP). A URL
  // that redirects is a configuration error: its batches are refused.
  std::string collectorURL;
  // Format, service, Thrift form and gzip of every request body.
  QENSpanEncoding encoding;
  // How batches reach the collector. Null: libcurl posts to collectorURL
  // (QENCurlCollectorTransport), each attempt within requestTimeout.
  std::shared_ptr<QENCollectorTransport> transport;
  // One report (an export: a tree's spans) keeps at most this many, those nearest the top of
  // their tree first (a parent listed before its children, as exports list them); the deepest
  // go. At least 1.
  std::size_t maximumSpansPerReport = 1000;
  // A client-side rate limit: past this many spans a minute (in bursts of up to as many), reported
  // spans are dropped. 0: no limit.
  std::uint64_t maximumSpansPerMinute = 0;
  // Past this many waiting spans the oldest are dropped. At least 1.
  std::size_t maximumQueuedSpans = 10000;
  // At least 1.
  std::size_t maximumBatchSpans = 100;
  // A batch stops growing once its spans' encoded size reaches this. At least 1 (a batch always
  // takes one span).
  std::size_t maximumBatchBytes = 512 * 1024;
  // How long queued spans may wait for a batch to fill. At least 0: 0 sends what is queued at
  // once. An empty queue is waited on without any timer.
  std::chrono::milliseconds flushInterval{1000};
  // Attempts after the first, for connection errors, 429 and 5xx answers. At least 0.
  int maximumRetries = 4;
  // The first wait before a retry, doubled each time up to maximumBackoff. At least 0, and
  // maximumBackoff at least initialBackoff.
  std::chrono::milliseconds initialBackoff{100};
  std::chrono::milliseconds maximumBackoff{5000};
  // A collector that answers 429 or 503 is sent nothing more for as long as its Retry-After says,
  // up to this, and never for less than the back-off's next wait; the batch is then sent again.
  // So a collector can neither stop a reporter for days nor make it post in a loop. At least 0.
  std::chrono::milliseconds maximumRetryAfter{std::chrono::minutes(10)};
  // One attempt's limit, for the default transport. At least 1 ms.
  std::chrono::milliseconds requestTimeout{5000};
  // Headers sent with every request besides Content-Type, Content-Encoding and the User-Agent
  // ("QENPerformanceLogger/<version>"), for example {"Authorization", "Bearer ..."}. A header
  // with an empty name, a colon in its name or a line break anywhere is reported through the
  // assertion facility and left out.
  std::vector<std::pair<std::string, std::string>> headers;
  // With a spool, every batch is written to it (on the reporter's thread) before it is sent, and
  // leaves it only once the collector answered 2xx (or refused it with 3xx/4xx but 429), so that a
  // killed process loses no persisted span: the next reporter on the same spool sends what is
  // left, first. Connection errors, 429 and 5xx answers are retried, with the back-off or the
  // collector's Retry-After, until the spool's age bound takes the batch: maximumRetries does not
  // apply. Shared with the host, which may
  // also watch unfinished trees with it (QENUnfinishedTraceWatcher).
  std::shared_ptr<QENSpanSpool> spool;
  // Consent at construction; setConsent changes it. Granted by default, as the reporter cannot
  // tell whether the app asks its users: an app that does starts with kPending, so that nothing
  // leaves before the answer. kNotGranted here also clears the spool.
  QENTelemetryConsent consent = QENTelemetryConsent::kGranted;
  // Sending pauses while the device is offline, in power-save, or below this battery level and
  // not charging (setDeviceConditions); what is reported meanwhile is kept as consent allows.
  // From 0 (never) to 1.
  double minimumBatteryLevel = 0.1;
  // Whether sending also pauses on a metered network.
  bool pausesOnMeteredNetwork = false;
  // The limit the destructor gives shutdown. At least 0.
  std::chrono::milliseconds destructionShutdownLimit{5000};
  // Called once, when the reporter has stopped, with its final counters; it runs on the thread
  // that stopped it. What it throws is logged, never let out. Whatever it does, undelivered spans
  // are also logged through the developer logger.
  std::function<void(const QENSpanReporterCounters&)> didStop;
};

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
  using Outcome = QENCollectorTransport::Outcome;

  static QENSpanReporterOptions validated(QENSpanReporterOptions options);
  void run();
  void waitForWork(std::unique_lock<std::mutex>& lock);
  bool queueReady(Clock::time_point now) const;
  // Whether the queue's next batch can be handled: persisted, or else sent.
  bool queueCanMove() const;
  bool spoolReady(Clock::time_point now) const;
  // Takes the spans of the next batch off the queue, each encoded (once) to size the batch.
  std::vector<std::string> takeBatch(std::unique_lock<std::mutex>& lock);
  void deliver(std::span<const std::string> encodedSpans, QENDeliveryGate::Ticket ticket);
  void persist(const QENEncodedBatch& batch, QENDeliveryGate::Ticket ticket);
  void deliverFromSpool();
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
  // Waits `backoff`, cut short by shutdown's deadline; false once that has passed.
  bool waitForRetry(std::unique_lock<std::mutex>& lock, std::chrono::milliseconds backoff);
  // How long to wait before the next attempt after `outcome`.
  std::chrono::milliseconds pauseAfter(Outcome outcome, QENBackoff& backoff) const;
  void reportStop();

  const QENSpanReporterOptions options_;
  QENSpanEncoding encoding_;  // the worker's: it stops gzipping for a collector that cannot read it
  const std::shared_ptr<QENCollectorTransport> transport_;
  // Guards the queue, the counters and the state below, up to the deadline.
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<std::shared_ptr<QENThrift::Span>> queue_;
  QENSpanReporterCounters counters_;
  bool stopping_ = false;
  Clock::time_point oldestQueuedAt_;
  // With a spool: whether it may hold batches, and when the next may be sent.
  bool spoolWaiting_ = false;
  Clock::time_point spoolNotBefore_;
  std::unique_ptr<QENBackoff> spoolBackoff_;
  std::unique_ptr<QENTokenBucket> rateLimit_;  // null without a limit
  QENDeliveryGate gate_;
  // When shutdown's time is up; the end of time until shutdown.
  QENDeliveryDeadline deadline_;
  std::mutex joinMutex_;
  std::once_flag stopReported_;
  std::thread worker_;
};
