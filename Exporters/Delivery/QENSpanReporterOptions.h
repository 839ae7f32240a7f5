#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "QENCollectorTransport.h"
#include "QENDeliveryGate.h"
#include "QENSpanEncoding.h"
#include "QENSpanReporterCounters.h"
#include "QENSpanSpool.h"

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
  // The same for a batch in the spool, which is there to outlive an outage: with the default
  // back-off, 100 retries span minutes of failures (and any number of the app's launches), while a
  // batch the collector never takes still leaves. At least 0.
  int maximumSpooledRetries = 100;
  // The first wait before a retry, doubled each time up to maximumBackoff. Each wait is drawn
  // between half of that and all of it, so that the apps a collector's outage hit at once do not
  // all come back at once. At least 0, and maximumBackoff at least initialBackoff.
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
  // collector's Retry-After, maximumSpooledRetries times after the first attempt (attempts count
  // across processes), unless the spool's age bound takes the batch first. Shared with the host,
  // which may also watch unfinished trees with it (QENUnfinishedTraceWatcher).
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

  // These options with each setting below its floor reported and raised to it, and each ill-formed
  // header reported and left out.
  QENSpanReporterOptions validated() const;
};
