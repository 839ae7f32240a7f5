#include "QENPerformanceLoggerC.h"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "QENApplication/QENApplicationLifecycle.h"
#include "QENAssert.h"
#include "QENCHandleTable.h"
#include "QENFoundation/QENCurrentExceptionDescription.h"
#include "QENFoundation/QENMonotonicTime.h"
#include "QENFoundation/QENNotificationCenter.h"
#include "QENFoundation/QENRandom.h"
#include "QENPerformanceLogger.h"
#include "QENPerformanceLoggerExporters.h"

namespace {

using Metric = QENPerformanceMetric;
using Vocabulary = QENThrift::BinaryAnnotationQENAdditions;

struct Trace {
  Metric::SpanList spans;
};

// What a QENCReporterOptions names: the reporter's options, set under a lock of their own.
struct ReporterOptions {
  std::mutex mutex;
  QENSpanReporterOptions options;
};

template <class Object>
constexpr QENCHandleKind kindOf();
template <>
constexpr QENCHandleKind kindOf<Metric>() {
  return QENCHandleKind::kMetric;
}
template <>
constexpr QENCHandleKind kindOf<Trace>() {
  return QENCHandleKind::kTrace;
}
template <>
constexpr QENCHandleKind kindOf<QENSpanSpool>() {
  return QENCHandleKind::kSpool;
}
template <>
constexpr QENCHandleKind kindOf<QENSpanReporter>() {
  return QENCHandleKind::kReporter;
}
template <>
constexpr QENCHandleKind kindOf<ReporterOptions>() {
  return QENCHandleKind::kReporterOptions;
}
template <>
constexpr QENCHandleKind kindOf<QENScreenDisplay>() {
  return QENCHandleKind::kScreenDisplay;
}

void reportInvalidHandle(std::uint64_t id, const char* function) {
  QENAssertionFailure(function, "Invalid handle %llu: zero, released, or of another kind",
                      static_cast<unsigned long long>(id));
}

// The object a handle names, pinned for the length of a call.
template <class Object>
QENCHandleTable::Pin pin(std::uint64_t id, const char* function) {
  auto pinned = QENCHandleTable::shared().find(id, kindOf<Object>());
  if (!pinned) {
    reportInvalidHandle(id, function);
  }
  return pinned;
}

// The object a handle names, held beyond the call (a child adopted, a spool a reporter keeps).
template <class Object>
std::shared_ptr<Object> resolve(std::uint64_t id, const char* function) {
  return std::static_pointer_cast<Object>(pin<Object>(id, function).shared());
}

// Hands out a handle for the object; a table full to the last of its four billion slots hands
// out none.
template <class Object>
QENCStatus handOut(std::shared_ptr<Object> object, std::uint64_t& id, const char* function) {
  id = QENCHandleTable::shared().insert(kindOf<Object>(), std::move(object));
  if (id == 0) {
    QENAssertionFailure(function, "No handle left: every slot of the table is live");
    return QENCStatusFailed;
  }
  return QENCStatusOK;
}

template <class Object>
QENCStatus release(std::uint64_t id, const char* function) {
  if (!QENCHandleTable::shared().remove(id, kindOf<Object>())) {
    reportInvalidHandle(id, function);
    return QENCStatusInvalidHandle;
  }
  return QENCStatusOK;
}

QENCStatus invalidArgument(const char* function, const char* what) {
  QENAssertionFailure(function, "Invalid argument: %s", what);
  return QENCStatusInvalidArgument;
}

// A string given as pointer and length: absent when the pointer is null with a length.
std::optional<std::string> stringOf(const char* data, std::size_t length) {
  if (data == nullptr) {
    return length == 0 ? std::optional<std::string>(std::string()) : std::nullopt;
  }
  return std::string(data, length);
}

// Holds a host's `userData` for a callback kept by the library: `release` (may be null) runs once,
// when the last copy of the callback goes.
std::shared_ptr<void> releasedOnceOf(void* userData, QENCRelease release) {
  return std::shared_ptr<void>(userData, [release](void* data) {
    if (release != nullptr) {
      release(data);
    }
  });
}

std::optional<QENTelemetryConsent> consentOf(QENCConsent consent) {
  constexpr QENTelemetryConsent kConsents[] = {QENTelemetryConsent::kPending,
                                               QENTelemetryConsent::kGranted,
                                               QENTelemetryConsent::kNotGranted};
  if (consent < QENCConsentPending || consent > QENCConsentNotGranted) {
    return std::nullopt;
  }
  return kConsents[consent];
}

// Runs an entry point's body; no exception leaves it.
template <class Body>
QENCStatus guarded(const char* function, Body&& body) noexcept {
#if defined(__cpp_exceptions)
  try {
    return body();
  } catch (const std::bad_alloc&) {
    QENAssertionFailure(function, "Out of memory");
  } catch (...) {
    QENAssertionFailure(function, "Failed: %s", QENCurrentExceptionDescription().c_str());
  }
  return QENCStatusFailed;
#else
  (void)function;
  return body();
#endif
}

// Runs `action` on the metric a handle names.
template <class Action>
QENCStatus withMetric(QENCMetric handle, const char* function, Action&& action) noexcept {
  return guarded(function, [&] {
    const auto metric = pin<Metric>(handle.id, function);
    if (!metric) {
      return QENCStatusInvalidHandle;
    }
    return action(*static_cast<Metric*>(metric.object()));
  });
}

template <class Action>
QENCStatus withTag(QENCMetric handle, const char* key, std::size_t keyLength, const char* function,
                   Action&& makeTag) noexcept {
  return withMetric(handle, function, [&](Metric& metric) {
    const auto keyText = stringOf(key, keyLength);
    if (!keyText) {
      return invalidArgument(function, "key");
    }
    metric.addBinaryAnnotation(makeTag(*keyText));
    return QENCStatusOK;
  });
}

// A reporter's format for one of the C formats (Chrome trace excepted: no reporter sends it).
QENSpanEncodingFormat encodingFormatOf(QENCFormat format) {
  switch (format) {
    case QENCFormatZipkinV1Thrift:
      return QENSpanEncodingFormat::kZipkinV1Thrift;
    case QENCFormatOTLPJSON:
      return QENSpanEncodingFormat::kOTLPJSON;
    default:
      return QENSpanEncodingFormat::kZipkinV2JSON;
  }
}

std::string encodedBytes(const Trace& trace, QENCFormat format,
                         const QENSpanReadingOptions& reading) {
  if (format == QENCFormatChromeTrace) {
    return QENChromeTraceEncoder::encodeSpans(trace.spans, reading);
  }
  QENSpanEncoding encoding;
  encoding.reading = reading;
  encoding.format = encodingFormatOf(format);
  return encoding.encode(trace.spans);
}

// The top of the tree the metric is in (the metric itself when it has no parent).
std::shared_ptr<const Metric> rootOf(const Metric& metric) {
  std::shared_ptr<const Metric> root = metric.shared_from_this();
  for (auto above = metric.parentMetric(); above != nullptr; above = above->parentMetric()) {
    root = above;
  }
  return root;
}

void visitHeaders(const QENTracePropagationHeaders::Context& context, QENCHeaderVisitor visitor,
                  void* userData) {
  for (const auto& [name, value] : QENTracePropagationHeaders::headersForContext(context)) {
    visitor(userData, name.data(), name.size(), value.data(), value.size());
  }
}

bool isFormat(QENCFormat format) {
  return format >= QENCFormatZipkinV2JSON && format <= QENCFormatChromeTrace;
}

}  // namespace

double QENCMonotonicTimeNow(void) {
  return QENMonotonicTimeGetCurrent();
}

// MARK: - Metrics

QENCStatus QENCMetricCreate(const char* name, size_t nameLength, double uploadFraction,
                            QENCMetric* metric) {
  const char* const function = __func__;
  return guarded(function, [&] {
    const auto nameText = stringOf(name, nameLength);
    if (metric == nullptr || !nameText) {
      return invalidArgument(function, metric == nullptr ? "metric" : "name");
    }
    return handOut<Metric>(Metric::initWithName(*nameText, uploadFraction), metric->id, function);
  });
}

QENCStatus QENCMetricCreateLeaf(const char* name, size_t nameLength, QENCMetric* metric) {
  const char* const function = __func__;
  return guarded(function, [&] {
    const auto nameText = stringOf(name, nameLength);
    if (metric == nullptr || !nameText) {
      return invalidArgument(function, metric == nullptr ? "metric" : "name");
    }
    return handOut<Metric>(Metric::initLeafMetricWithName(*nameText), metric->id, function);
  });
}

QENCStatus QENCMetricRelease(QENCMetric metric) {
  const char* const function = __func__;
  return guarded(function, [&] { return release<Metric>(metric.id, function); });
}

size_t QENCMetricHandleCount(void) {
  return QENCHandleTable::shared().count(QENCHandleKind::kMetric);
}

QENCStatus QENCMetricStart(QENCMetric metric) {
  return withMetric(metric, __func__, [](Metric& target) {
    target.startMetric();
    return QENCStatusOK;
  });
}

namespace {

// A time no metric can start or stop at: NaN, an infinity, or before the clock's zero.
bool refusesTime(double time, const char* function) {
  if (QENIsValidMonotonicTime(time)) {
    return false;
  }
  invalidArgument(function, "time");
  return true;
}

bool refusesStopReason(std::int64_t stopReason, const char* function) {
  if (stopReason >= QENPerformanceMetricStopReasonDefault &&
      stopReason <= QENPerformanceMetricStopReasonClientError) {
    return false;
  }
  invalidArgument(function, "stopReason");
  return true;
}

}  // namespace

QENCStatus QENCMetricStartWithTime(QENCMetric metric, double time) {
  const char* const function = __func__;
  return withMetric(metric, function, [&](Metric& target) {
    if (refusesTime(time, function)) {
      return QENCStatusInvalidArgument;
    }
    target.startMetricWithTime(time);
    return QENCStatusOK;
  });
}

QENCStatus QENCMetricStop(QENCMetric metric) {
  return withMetric(metric, __func__, [](Metric& target) {
    target.stopMetric();
    return QENCStatusOK;
  });
}

QENCStatus QENCMetricStopWithTime(QENCMetric metric, double time) {
  const char* const function = __func__;
  return withMetric(metric, function, [&](Metric& target) {
    if (refusesTime(time, function)) {
      return QENCStatusInvalidArgument;
    }
    target.stopMetricWithTime(time);
    return QENCStatusOK;
  });
}

QENCStatus QENCMetricInvalidate(QENCMetric metric, int64_t stopReason) {
  const char* const function = __func__;
  return withMetric(metric, function, [&](Metric& target) {
    if (refusesStopReason(stopReason, function)) {
      return QENCStatusInvalidArgument;
    }
    target.invalidateWithReason(stopReason);
    return QENCStatusOK;
  });
}

QENCStatus QENCMetricInvalidateWithTime(QENCMetric metric, int64_t stopReason, double time) {
  const char* const function = __func__;
  return withMetric(metric, function, [&](Metric& target) {
    if (refusesStopReason(stopReason, function) || refusesTime(time, function)) {
      return QENCStatusInvalidArgument;
    }
    if (target.isStarted() && !target.isFinished()) {
      target.stopMetricWithTime(time);  // the invalidation keeps this stop
    }
    target.invalidateWithReason(stopReason);
    return QENCStatusOK;
  });
}

QENCStatus QENCMetricAddChild(QENCMetric parent, QENCMetric child) {
  const char* const function = __func__;
  return withMetric(parent, function, [&](Metric& target) {
    auto adopted = resolve<Metric>(child.id, function);
    if (adopted == nullptr) {
      return QENCStatusInvalidHandle;
    }
    target.addChildMetric(adopted);
    // Refused (and reported) when it would close a cycle: the child then names another parent.
    return adopted->parentMetric().get() == &target ? QENCStatusOK : QENCStatusInvalidArgument;
  });
}

QENCStatus QENCMetricAddAnnotation(QENCMetric metric, const char* name, size_t nameLength,
                                   double time) {
  const char* const function = __func__;
  return withMetric(metric, function, [&](Metric& target) {
    const auto nameText = stringOf(name, nameLength);
    if (!nameText) {
      return invalidArgument(function, "name");
    }
    target.addAnnotation(QENThrift::AnnotationQENAdditions::annotationWithName(*nameText, time));
    return QENCStatusOK;
  });
}

QENCStatus QENCMetricAddStringTag(QENCMetric metric, const char* key, size_t keyLength,
                                  const char* value, size_t valueLength) {
  const char* const function = __func__;
  return withMetric(metric, function, [&](Metric& target) {
    const auto keyText = stringOf(key, keyLength);
    const auto valueText = stringOf(value, valueLength);
    if (!keyText || !valueText) {
      return invalidArgument(function, !keyText ? "key" : "value");
    }
    target.addBinaryAnnotation(Vocabulary::annotationWithKeyString(*keyText, *valueText));
    return QENCStatusOK;
  });
}

QENCStatus QENCMetricAddBoolTag(QENCMetric metric, const char* key, size_t keyLength, bool value) {
  return withTag(metric, key, keyLength, __func__, [&](const std::string& keyText) {
    return Vocabulary::annotationWithKeyBoolean(keyText, value);
  });
}

QENCStatus QENCMetricAddInt16Tag(QENCMetric metric, const char* key, size_t keyLength,
                                 int16_t value) {
  return withTag(metric, key, keyLength, __func__, [&](const std::string& keyText) {
    return Vocabulary::annotationWithKeyInt16(keyText, value);
  });
}

QENCStatus QENCMetricAddInt32Tag(QENCMetric metric, const char* key, size_t keyLength,
                                 int32_t value) {
  return withTag(metric, key, keyLength, __func__, [&](const std::string& keyText) {
    return Vocabulary::annotationWithKeyInt32(keyText, value);
  });
}

QENCStatus QENCMetricAddInt64Tag(QENCMetric metric, const char* key, size_t keyLength,
                                 int64_t value) {
  return withTag(metric, key, keyLength, __func__, [&](const std::string& keyText) {
    return Vocabulary::annotationWithKeyInt64(keyText, value);
  });
}

QENCStatus QENCMetricAddCompletion(QENCMetric metric, QENCCompletion completion,
                                   QENCRelease release, void* userData) {
  const char* const function = __func__;
  return withMetric(metric, function, [&](Metric& target) {
    if (completion == nullptr) {
      return invalidArgument(function, "completion");
    }
    // Released when the last copy of the callback goes: after it ran, or with a metric that
    // never finished.
    const std::shared_ptr<void> releasedOnce = releasedOnceOf(userData, release);
    // The callback holds no reference to the metric: it may release the metric's handle.
    target.addCompletionBlock(
        [completion, releasedOnce](bool valid) { completion(releasedOnce.get(), valid); });
    return QENCStatusOK;
  });
}

QENCStatus QENCMetricShouldUpload(QENCMetric metric, bool* shouldUpload) {
  const char* const function = __func__;
  return withMetric(metric, function, [&](Metric& target) {
    if (shouldUpload == nullptr) {
      return invalidArgument(function, "shouldUpload");
    }
    *shouldUpload = target.shouldUpload();
    return QENCStatusOK;
  });
}

QENCStatus QENCMetricIdentifiers(QENCMetric metric, int64_t* traceId, int64_t* spanId) {
  const char* const function = __func__;
  return withMetric(metric, function, [&](Metric& target) {
    if (traceId == nullptr || spanId == nullptr) {
      return invalidArgument(function, traceId == nullptr ? "traceId" : "spanId");
    }
    *traceId = target.traceId();
    *spanId = target.spanId();
    return QENCStatusOK;
  });
}

// MARK: - App start

QENCStatus QENCMetricTagAppStart(QENCMetric startMetric, double processStartTime,
                                 double firstScreenTime, uint32_t flags, QENCAppStartType* type) {
  const char* const function = __func__;
  return withMetric(startMetric, function, [&](Metric& target) {
    const bool screen = !std::isnan(firstScreenTime);
    if (type == nullptr || flags >= 32 || !std::isfinite(processStartTime) ||
        (screen && !(std::isfinite(firstScreenTime) && firstScreenTime >= processStartTime))) {
      return invalidArgument(function, type == nullptr ? "type" : flags >= 32 ? "flags" : "time");
    }
    const QENAppStartFacts facts{
        .processStartTime = processStartTime,
        .firstScreenTime = screen ? std::optional(firstScreenTime) : std::nullopt,
        .processWasRunning = (flags & QENCAppStartProcessWasRunning) != 0,
        .screenWasCreated = (flags & QENCAppStartScreenBroughtToFront) == 0,
        .restoredFromSavedState = (flags & QENCAppStartRestoredFromSavedState) != 0,
        .prewarmedBySystem = (flags & QENCAppStartPrewarmedBySystem) != 0,
        .startedForForeground = (flags & QENCAppStartStartedInBackground) == 0};
    *type = QENCAppStartNone;
    if (const auto started = QENTagAppStart(target, facts)) {
      constexpr QENCAppStartType kTypes[] = {QENCAppStartCold, QENCAppStartWarm, QENCAppStartHot,
                                             QENCAppStartPrewarmed};  // in QENAppStartType's order
      *type = kTypes[static_cast<int>(*started)];
    }
    return QENCStatusOK;
  });
}

// MARK: - Propagation headers

namespace {

enum class HostVerdict { kAllowed, kNotListed, kNotAURL };

// What the process's propagation policy says of the host of `url`.
HostVerdict propagationVerdict(const char* url, std::size_t urlLength) {
  const auto text = stringOf(url, urlLength);
  const auto parsed = text ? QENURL::URLWithString(*text) : nullptr;
  if (parsed == nullptr) {
    return HostVerdict::kNotAURL;
  }
  return QENTracePropagationHeaders::policy()->allowsHost(parsed->host()) ? HostVerdict::kAllowed
                                                                          : HostVerdict::kNotListed;
}

}  // namespace

QENCStatus QENCSetPropagationHosts(const char* const* hosts, const size_t* hostLengths,
                                   size_t count) {
  const char* const function = __func__;
  return guarded(function, [&] {
    if (count > 0 && (hosts == nullptr || hostLengths == nullptr)) {
      return invalidArgument(function, hosts == nullptr ? "hosts" : "hostLengths");
    }
    std::vector<std::string> suffixes;
    for (std::size_t index = 0; index < count; ++index) {
      const auto host = stringOf(hosts[index], hostLengths[index]);
      if (!host) {
        return invalidArgument(function, "hosts");
      }
      suffixes.push_back(*host);
    }
    QENTracePropagationHeaders::setPolicy(QENTracePropagationPolicy(suffixes));
    return QENCStatusOK;
  });
}

QENCStatus QENCMetricPropagationHeaders(QENCMetric requestMetric, const char* url, size_t urlLength,
                                        QENCHeaderVisitor visitor, void* userData) {
  const char* const function = __func__;
  return withMetric(requestMetric, function, [&](Metric& target) {
    if (visitor == nullptr) {
      return invalidArgument(function, "visitor");
    }
    const HostVerdict verdict = propagationVerdict(url, urlLength);
    if (verdict != HostVerdict::kAllowed) {
      return verdict == HostVerdict::kNotAURL ? invalidArgument(function, "url") : QENCStatusOK;
    }
    const auto parent = target.parentMetric();
    QENTracePropagationHeaders::Context context;
    context.traceId = rootOf(target)->traceId();
    context.spanId = target.spanId();
    context.parentSpanId = parent != nullptr ? parent->spanId() : 0;
    context.sampled = rootOf(target)->shouldUpload();
    visitHeaders(context, visitor, userData);
    return QENCStatusOK;
  });
}

QENCStatus QENCPropagationHeadersForRequest(QENCMetric parent, const char* url, size_t urlLength,
                                            int64_t* requestSpanId, QENCHeaderVisitor visitor,
                                            void* userData) {
  const char* const function = __func__;
  return withMetric(parent, function, [&](Metric& target) {
    if (requestSpanId == nullptr || visitor == nullptr) {
      return invalidArgument(function, requestSpanId == nullptr ? "requestSpanId" : "visitor");
    }
    *requestSpanId = 0;
    const HostVerdict verdict = propagationVerdict(url, urlLength);
    if (verdict != HostVerdict::kAllowed) {
      return verdict == HostVerdict::kNotAURL ? invalidArgument(function, "url") : QENCStatusOK;
    }
    QENTracePropagationHeaders::Context context;
    QENFoundation::arc4random_buf(&context.spanId, sizeof context.spanId);
    context.traceId = rootOf(target)->traceId();
    context.parentSpanId = target.spanId();
    context.sampled = rootOf(target)->shouldUpload();
    *requestSpanId = context.spanId;
    visitHeaders(context, visitor, userData);
    return QENCStatusOK;
  });
}

// MARK: - Network requests

namespace {

std::optional<QENDate> dateOf(double secondsSince1970) {
  if (std::isnan(secondsSince1970)) {
    return std::nullopt;
  }
  return QENDate::dateWithTimeIntervalSince1970(secondsSince1970);
}

std::shared_ptr<const QENURLSessionTaskMetrics> taskMetricsOf(
    const QENCRequestTiming& timing, std::shared_ptr<const QENURLRequest> request) {
  auto transaction = std::make_shared<QENURLSessionTaskTransactionMetrics>();
  transaction->request = std::move(request);
  transaction->response =
      std::make_shared<QENHTTPURLResponse>(timing.statusCode, QENHTTPURLResponse::HeaderFields{});
  transaction->fetchStartDate = dateOf(timing.fetchStart);
  transaction->domainLookupStartDate = dateOf(timing.domainLookupStart);
  transaction->domainLookupEndDate = dateOf(timing.domainLookupEnd);
  transaction->connectStartDate = dateOf(timing.connectStart);
  transaction->secureConnectionStartDate = dateOf(timing.secureConnectionStart);
  transaction->secureConnectionEndDate = dateOf(timing.secureConnectionEnd);
  transaction->connectEndDate = dateOf(timing.connectEnd);
  transaction->requestStartDate = dateOf(timing.requestStart);
  transaction->requestEndDate = dateOf(timing.requestEnd);
  transaction->responseStartDate = dateOf(timing.responseStart);
  transaction->responseEndDate = dateOf(timing.responseEnd);
  transaction->countOfResponseHeaderBytesReceived = timing.responseHeaderBytes;
  transaction->countOfResponseBodyBytesReceived = timing.responseBodyBytes;
  transaction->resourceFetchType = QENURLSessionTaskMetricsResourceFetchTypeNetworkLoad;
  transaction->isReusedConnection = timing.reusedConnection;
  auto metrics = std::make_shared<QENURLSessionTaskMetrics>();
  metrics->transactionMetrics.push_back(std::move(transaction));
  const auto start = dateOf(timing.fetchStart);
  const auto end = dateOf(timing.responseEnd);
  if (start && end) {
    metrics->taskInterval = QENDateInterval{*start, *end};
  }
  return metrics;
}

}  // namespace

QENCStatus QENCEndpointMetricCreate(const char* url, size_t urlLength, const char* method,
                                    size_t methodLength, const QENCRequestTiming* timing,
                                    int64_t requestSpanId, QENCMetric* metric) {
  const char* const function = __func__;
  return guarded(function, [&] {
    const auto urlText = stringOf(url, urlLength);
    const auto methodText = stringOf(method, methodLength);
    if (metric == nullptr || timing == nullptr || !urlText || !methodText) {
      return invalidArgument(function, "metric, timing, url or method");
    }
    auto request =
        std::make_shared<const QENURLRequest>(QENURL::URLWithString(*urlText), *methodText);
    auto endpoint = QENEndpointPerformanceMetric::initWithRequest(request, std::nullopt,
                                                                  taskMetricsOf(*timing, request));
    if (requestSpanId != 0) {
      endpoint->overrideMetricWithSpanId(requestSpanId);
    }
    return handOut<Metric>(std::move(endpoint), metric->id, function);
  });
}

// MARK: - Application lifecycle

QENCStatus QENCPostApplicationEvent(QENCApplicationEvent event) {
  const char* const function = __func__;
  return guarded(function, [&] {
    static constexpr std::string_view kNames[] = {
        UIApplicationDidEnterBackgroundNotification, UIApplicationWillResignActiveNotification,
        UIApplicationWillEnterForegroundNotification, UIApplicationDidBecomeActiveNotification};
    if (event < QENCApplicationDidEnterBackground || event > QENCApplicationDidBecomeActive) {
      return invalidArgument(function, "event");
    }
    QENNotificationCenter::defaultCenter().postNotificationName(kNames[event]);
    return QENCStatusOK;
  });
}

QENCStatus QENCMetricObserveApplicationEvents(QENCMetric metric) {
  return withMetric(metric, __func__, [](Metric& target) {
    target.configureAppLifecycleNotificationObservation();
    return QENCStatusOK;
  });
}

// MARK: - Frames

QENCStatus QENCReportFrame(double startTime, double duration, double expectedInterval) {
  const char* const function = __func__;
  return guarded(function, [&] {
    if (!(std::isfinite(startTime) && std::isfinite(duration) && std::isfinite(expectedInterval) &&
          duration > 0 && expectedInterval > 0)) {
      return invalidArgument(function, "frame");
    }
    QENFrameMonitor::shared().reportFrame(startTime, duration, expectedInterval);
    return QENCStatusOK;
  });
}

QENCStatus QENCSetSlowFrameTolerance(double seconds) {
  const char* const function = __func__;
  return guarded(function, [&] {
    if (!(std::isfinite(seconds) && seconds >= 0)) {
      return invalidArgument(function, "seconds");
    }
    QENFrameMonitor::shared().setSlowFrameTolerance(seconds);
    return QENCStatusOK;
  });
}

QENCStatus QENCScreenDisplayCreate(QENCMetric screen, double creationTime,
                                   double fullDisplayTimeout, QENCScreenDisplay* display) {
  const char* const function = __func__;
  return withMetric(screen, function, [&](Metric& target) {
    if (display == nullptr || !std::isfinite(creationTime) ||
        !(std::isfinite(fullDisplayTimeout) && fullDisplayTimeout >= 0)) {
      return invalidArgument(function, display == nullptr ? "display" : "time");
    }
    const double timeout =
        fullDisplayTimeout == 0 ? QENScreenDisplay::kDefaultFullDisplayTimeout : fullDisplayTimeout;
    auto made = QENScreenDisplay::track(target.shared_from_this(), creationTime, timeout);
    return handOut<QENScreenDisplay>(std::move(made), display->id, function);
  });
}

QENCStatus QENCScreenDisplayReportFullyDrawn(QENCScreenDisplay display, double time) {
  const char* const function = __func__;
  return guarded(function, [&] {
    const auto pinned = pin<QENScreenDisplay>(display.id, function);
    if (!pinned) {
      return QENCStatusInvalidHandle;
    }
    if (!std::isfinite(time)) {
      return invalidArgument(function, "time");
    }
    static_cast<QENScreenDisplay*>(pinned.object())->reportFullyDrawn(time);
    return QENCStatusOK;
  });
}

QENCStatus QENCScreenDisplayRelease(QENCScreenDisplay display) {
  const char* const function = __func__;
  return guarded(function, [&] { return release<QENScreenDisplay>(display.id, function); });
}

// MARK: - Hangs

QENCStatus QENCHangMonitorStart(double thresholdSeconds, QENCStackCapture capture,
                                QENCRelease release, void* userData) {
  const char* const function = __func__;
  return guarded(function, [&] {
    if (!(thresholdSeconds == 0 || thresholdSeconds >= QENHangDetector::kMinimumThreshold) ||
        std::isinf(thresholdSeconds)) {
      return invalidArgument(function, "thresholdSeconds");
    }
    QENHangMonitor::Options options;
    if (thresholdSeconds != 0) {
      options.threshold = thresholdSeconds;
    }
    if (capture != nullptr) {
      options.captureMainThreadStack = [capture, data = releasedOnceOf(userData, release)] {
        std::string stack(16 * 1024, '\0');
        stack.resize(std::min(capture(data.get(), stack.data(), stack.size()), stack.size()));
        return stack;
      };
    } else if (release != nullptr) {
      release(userData);
    }
    QENHangMonitor::shared().start(std::move(options));
    return QENCStatusOK;
  });
}

QENCStatus QENCHangMonitorKeepOngoingHangs(QENCSpool spool, QENCFormat format, const char* service,
                                           size_t serviceLength, const char* platform,
                                           size_t platformLength) {
  const char* const function = __func__;
  return guarded(function, [&] {
    const auto serviceText = stringOf(service, serviceLength);
    const auto platformText = stringOf(platform, platformLength);
    if (!isFormat(format) || format == QENCFormatChromeTrace || !serviceText || !platformText) {
      return invalidArgument(function, !serviceText || !platformText ? "text" : "format");
    }
    auto kept = resolve<QENSpanSpool>(spool.id, function);
    if (kept == nullptr) {
      return QENCStatusInvalidHandle;
    }
    QENSpanEncoding encoding;
    encoding.format = encodingFormatOf(format);
    encoding.reading.serviceName = *serviceText;
    QENHangMonitor::shared().setObserver(
        QENFatalHangRecording(std::move(kept), std::move(encoding),
                              QENPerformanceMetricAppContext(std::nullopt, *platformText)));
    return QENCStatusOK;
  });
}

QENCStatus QENCHeartbeat(void) {
  return guarded(__func__, [] {
    QENHangMonitor::shared().heartbeat();
    return QENCStatusOK;
  });
}

QENCStatus QENCHangMonitorStop(void) {
  return guarded(__func__, [] {
    QENHangMonitor::shared().stop();
    return QENCStatusOK;
  });
}

// MARK: - Export

QENCStatus QENCTraceCreate(QENCMetric metric, const char* userId, size_t userIdLength,
                           const char* platform, size_t platformLength, QENCTrace* trace) {
  const char* const function = __func__;
  return withMetric(metric, function, [&](Metric& target) {
    const auto platformText = stringOf(platform, platformLength);
    if (trace == nullptr || !platformText || (userId == nullptr && userIdLength != 0)) {
      return invalidArgument(function, trace == nullptr ? "trace" : "userId or platform");
    }
    if (!target.isFinished()) {
      return QENCStatusNotFinished;
    }
    const QENPerformanceMetricAppContext context(
        userId != nullptr ? std::optional<std::string>(std::string(userId, userIdLength))
                          : std::nullopt,
        *platformText);
    auto exported = std::make_shared<Trace>();
    exported->spans = target.spansWithAppContext(context);
    return handOut<Trace>(std::move(exported), trace->id, function);
  });
}

QENCStatus QENCTraceRelease(QENCTrace trace) {
  const char* const function = __func__;
  return guarded(function, [&] { return release<Trace>(trace.id, function); });
}

QENCStatus QENCTraceSpanCount(QENCTrace trace, size_t* count) {
  const char* const function = __func__;
  return guarded(function, [&] {
    const auto exported = resolve<Trace>(trace.id, function);
    if (exported == nullptr) {
      return QENCStatusInvalidHandle;
    }
    if (count == nullptr) {
      return invalidArgument(function, "count");
    }
    *count = exported->spans.size();
    return QENCStatusOK;
  });
}

QENCStatus QENCTraceEncode(QENCTrace trace, QENCFormat format, const char* service,
                           size_t serviceLength, QENCBuffer* encoded) {
  const char* const function = __func__;
  return guarded(function, [&] {
    const auto exported = resolve<Trace>(trace.id, function);
    if (exported == nullptr) {
      return QENCStatusInvalidHandle;
    }
    const auto serviceText = stringOf(service, serviceLength);
    if (encoded == nullptr || !serviceText || !isFormat(format)) {
      return invalidArgument(function, encoded == nullptr ? "encoded" : "service or format");
    }
    const std::string bytes = encodedBytes(*exported, format, {.serviceName = *serviceText});
    auto* data = static_cast<std::uint8_t*>(std::malloc(bytes.empty() ? 1 : bytes.size()));
    if (data == nullptr) {
      return QENCStatusFailed;
    }
    std::memcpy(data, bytes.data(), bytes.size());
    *encoded = QENCBuffer{data, bytes.size()};
    return QENCStatusOK;
  });
}

void QENCBufferRelease(QENCBuffer* buffer) {
  if (buffer == nullptr) {
    return;
  }
  std::free(buffer->data);
  *buffer = QENCBuffer{nullptr, 0};
}

// MARK: - Delivery

QENCStatus QENCSpoolCreate(const char* path, size_t pathLength, uint64_t maximumBytes,
                           uint32_t maximumAgeSeconds, QENCSpool* spool) {
  const char* const function = __func__;
  return guarded(function, [&] {
    const auto pathText = stringOf(path, pathLength);
    if (spool == nullptr || !pathText || pathText->empty()) {
      return invalidArgument(function, spool == nullptr ? "spool" : "path");
    }
    QENSpanSpoolOptions options{.path = *pathText};
    if (maximumBytes != 0) {
      options.maximumBytes = maximumBytes;
    }
    if (maximumAgeSeconds != 0) {
      options.maximumAge = std::chrono::seconds(maximumAgeSeconds);
    }
    auto made = std::make_shared<QENSpanSpool>(std::move(options));
    if (!made->isOpen()) {
      return QENCStatusFailed;  // what it could not open, and why, is in the developer log
    }
    return handOut<QENSpanSpool>(std::move(made), spool->id, function);
  });
}

QENCStatus QENCSpoolRelease(QENCSpool spool) {
  const char* const function = __func__;
  return guarded(function, [&] { return release<QENSpanSpool>(spool.id, function); });
}

namespace {

// Runs `change` on the options a handle names, under their lock.
template <class Change>
QENCStatus withOptions(QENCReporterOptions handle, const char* function, Change&& change) noexcept {
  return guarded(function, [&] {
    const auto pinned = pin<ReporterOptions>(handle.id, function);
    if (!pinned) {
      return QENCStatusInvalidHandle;
    }
    auto& target = *static_cast<ReporterOptions*>(pinned.object());
    const std::lock_guard guard(target.mutex);
    return change(target.options);
  });
}

// Durations past a month are refused: no setting means that much, and a time point moved by the
// largest duration would overflow.
constexpr std::uint64_t kLongestMilliseconds = 30ull * 24 * 3600 * 1000;

// Sets one limit, or says why it cannot; `floor` is the least value the setting takes.
QENCStatus setLimit(QENSpanReporterOptions& options, QENCReporterLimit limit, std::uint64_t value,
                    const char* function) {
  using std::chrono::milliseconds;
  const auto number = [&](auto& setting, std::uint64_t floor, std::uint64_t ceiling) {
    if (value < floor || value > ceiling) {
      return invalidArgument(function, "value");
    }
    setting = static_cast<std::remove_reference_t<decltype(setting)>>(value);
    return QENCStatusOK;
  };
  const auto duration = [&](milliseconds& setting, std::uint64_t floor) {
    std::int64_t count = 0;
    const QENCStatus status = number(count, floor, kLongestMilliseconds);
    setting = status == QENCStatusOK ? milliseconds(count) : setting;
    return status;
  };
  constexpr std::uint64_t kAny = UINT64_MAX;
  auto& reading = options.encoding.reading;
  switch (limit) {
    case QENCLimitMaximumSpansPerReport:
      return number(options.maximumSpansPerReport, 1, kAny);
    case QENCLimitMaximumSpansPerMinute:
      return number(options.maximumSpansPerMinute, 0, kAny);
    case QENCLimitMaximumQueuedSpans:
      return number(options.maximumQueuedSpans, 1, kAny);
    case QENCLimitMaximumBatchSpans:
      return number(options.maximumBatchSpans, 1, kAny);
    case QENCLimitMaximumBatchBytes:
      return number(options.maximumBatchBytes, 1, kAny);
    case QENCLimitMaximumTagsPerSpan:
      return number(reading.maximumTagsPerSpan, QENSpanReading::kLeastTagsPerSpan, kAny);
    case QENCLimitMaximumTagValueBytes:
      return number(reading.maximumTagValueBytes, QENSpanReading::kLeastTagValueBytes, kAny);
    case QENCLimitMaximumRetries:
      return number(options.maximumRetries, 0, INT32_MAX);
    case QENCLimitFlushIntervalMilliseconds:
      return duration(options.flushInterval, 0);
    case QENCLimitInitialBackoffMilliseconds:
      return duration(options.initialBackoff, 0);
    case QENCLimitMaximumBackoffMilliseconds:
      return duration(options.maximumBackoff, 0);
    case QENCLimitMaximumRetryAfterMilliseconds:
      return duration(options.maximumRetryAfter, 0);
    case QENCLimitRequestTimeoutMilliseconds:
      return duration(options.requestTimeout, 1);
    case QENCLimitShutdownMilliseconds:
      return duration(options.destructionShutdownLimit, 0);
    case QENCLimitMaximumSpooledRetries:
      return number(options.maximumSpooledRetries, 0, INT32_MAX);
  }
  return invalidArgument(function, "limit");
}

QENCollectorTransport::Outcome outcomeOf(QENCPostOutcome outcome) {
  using Outcome = QENCollectorTransport::Outcome;
  constexpr Outcome kOutcomes[] = {
      Outcome::kDelivered,           Outcome::kRetry,  Outcome::kSlowDown, Outcome::kTooLarge,
      Outcome::kUnsupportedEncoding, Outcome::kRefused};
  const bool known = outcome >= QENCPostDelivered && outcome <= QENCPostRefused;
  return known ? kOutcomes[outcome] : Outcome::kTransportFailed;
}

bool isHeaderName(std::string_view name) {
  return !name.empty() && name.find_first_of(":\r\n") == std::string_view::npos;
}

}  // namespace

// What a tag filter is handed: the value, which it may replace.
struct QENCTagValue {
  std::string& text;
};

QENCStatus QENCReporterOptionsCreate(const char* collectorURL, size_t collectorURLLength,
                                     QENCReporterOptions* options) {
  const char* const function = __func__;
  return guarded(function, [&] {
    const auto url = stringOf(collectorURL, collectorURLLength);
    if (options == nullptr || !url || url->empty()) {
      return invalidArgument(function, options == nullptr ? "options" : "collectorURL");
    }
    auto made = std::make_shared<ReporterOptions>();
    made->options.collectorURL = *url;
    return handOut<ReporterOptions>(std::move(made), options->id, function);
  });
}

QENCStatus QENCReporterOptionsRelease(QENCReporterOptions options) {
  const char* const function = __func__;
  return guarded(function, [&] { return release<ReporterOptions>(options.id, function); });
}

QENCStatus QENCReporterOptionsSetFormat(QENCReporterOptions options, QENCFormat format, bool gzip) {
  const char* const function = __func__;
  return withOptions(options, function, [&](QENSpanReporterOptions& target) {
    if (!isFormat(format) || format == QENCFormatChromeTrace) {
      return invalidArgument(function, "format");
    }
    target.encoding.format = encodingFormatOf(format);
    target.encoding.gzip = gzip;
    return QENCStatusOK;
  });
}

QENCStatus QENCReporterOptionsSetService(QENCReporterOptions options, const char* service,
                                         size_t serviceLength) {
  const char* const function = __func__;
  return withOptions(options, function, [&](QENSpanReporterOptions& target) {
    const auto text = stringOf(service, serviceLength);
    if (!text) {
      return invalidArgument(function, "service");
    }
    target.encoding.reading.serviceName = *text;
    return QENCStatusOK;
  });
}

QENCStatus QENCReporterOptionsAddHeader(QENCReporterOptions options, const char* name,
                                        size_t nameLength, const char* value, size_t valueLength) {
  const char* const function = __func__;
  return withOptions(options, function, [&](QENSpanReporterOptions& target) {
    const auto nameText = stringOf(name, nameLength);
    const auto valueText = stringOf(value, valueLength);
    if (!nameText || !valueText || !isHeaderName(*nameText) ||
        valueText->find_first_of("\r\n") != std::string::npos) {
      return invalidArgument(function, "header");
    }
    target.headers.emplace_back(*nameText, *valueText);
    return QENCStatusOK;
  });
}

QENCStatus QENCReporterOptionsSetSpool(QENCReporterOptions options, QENCSpool spool) {
  const char* const function = __func__;
  return withOptions(options, function, [&](QENSpanReporterOptions& target) {
    auto resolved = spool.id == 0 ? nullptr : resolve<QENSpanSpool>(spool.id, function);
    if (spool.id != 0 && resolved == nullptr) {
      return QENCStatusInvalidHandle;
    }
    target.spool = std::move(resolved);
    return QENCStatusOK;
  });
}

QENCStatus QENCReporterOptionsSetConsent(QENCReporterOptions options, QENCConsent consent) {
  const char* const function = __func__;
  return withOptions(options, function, [&](QENSpanReporterOptions& target) {
    const auto given = consentOf(consent);
    if (!given) {
      return invalidArgument(function, "consent");
    }
    target.consent = *given;
    return QENCStatusOK;
  });
}

QENCStatus QENCReporterOptionsAddKeptQueryKey(QENCReporterOptions options, const char* key,
                                              size_t keyLength) {
  const char* const function = __func__;
  return withOptions(options, function, [&](QENSpanReporterOptions& target) {
    const auto text = stringOf(key, keyLength);
    if (!text) {
      return invalidArgument(function, "key");
    }
    target.encoding.reading.scrubbing.keptQueryKeys.push_back(*text);
    return QENCStatusOK;
  });
}

QENCStatus QENCReporterOptionsSetLimit(QENCReporterOptions options, QENCReporterLimit limit,
                                       uint64_t value) {
  const char* const function = __func__;
  return withOptions(options, function, [&](QENSpanReporterOptions& target) {
    return setLimit(target, limit, value, function);
  });
}

QENCStatus QENCReporterOptionsSetDeviceThresholds(QENCReporterOptions options,
                                                  double minimumBatteryLevel,
                                                  bool pausesOnMeteredNetwork) {
  const char* const function = __func__;
  return withOptions(options, function, [&](QENSpanReporterOptions& target) {
    if (!(minimumBatteryLevel >= 0 && minimumBatteryLevel <= 1)) {  // NaN too
      return invalidArgument(function, "minimumBatteryLevel");
    }
    target.minimumBatteryLevel = minimumBatteryLevel;
    target.pausesOnMeteredNetwork = pausesOnMeteredNetwork;
    return QENCStatusOK;
  });
}

QENCStatus QENCReporterOptionsSetTagFilter(QENCReporterOptions options, QENCTagFilter filter,
                                           QENCRelease release, void* userData) {
  const char* const function = __func__;
  return withOptions(options, function, [&](QENSpanReporterOptions& target) {
    if (filter == nullptr) {
      return invalidArgument(function, "filter");
    }
    // Released when the last reporter made with these options, and the options, have let go.
    const std::shared_ptr<void> releasedOnce = releasedOnceOf(userData, release);
    target.encoding.reading.scrubbing.tagFilter = [filter, releasedOnce](std::string_view key,
                                                                         std::string& value) {
      QENCTagValue tagValue{value};
      return filter(releasedOnce.get(), key.data(), key.size(), &tagValue);
    };
    return QENCStatusOK;
  });
}

void QENCTagValueRead(const QENCTagValue* value, const char** text, size_t* length) {
  if (value != nullptr && text != nullptr && length != nullptr) {
    *text = value->text.data();
    *length = value->text.size();
  }
}

void QENCTagValueReplace(QENCTagValue* value, const char* text, size_t length) {
  if (value != nullptr && (text != nullptr || length == 0)) {
    value->text.assign(text == nullptr ? "" : text, length);
  }
}

QENCStatus QENCReporterOptionsSetTransport(QENCReporterOptions options, QENCPost post,
                                           QENCRelease release, void* userData) {
  const char* const function = __func__;
  return withOptions(options, function, [&](QENSpanReporterOptions& target) {
    if (post == nullptr) {
      return invalidArgument(function, "post");
    }
    const std::shared_ptr<void> releasedOnce = releasedOnceOf(userData, release);
    target.transport = std::make_shared<QENHostCollectorTransport>(
        [post, releasedOnce](std::string_view body, const QENCollectorTransport::Headers& headers,
                             std::optional<std::chrono::seconds>& retryAfter) {
          std::vector<QENCHeader> fields;
          for (const auto& [name, value] : headers) {
            fields.push_back({name.data(), name.size(), value.data(), value.size()});
          }
          std::int64_t seconds = -1;
          const QENCPostOutcome outcome =
              post(releasedOnce.get(), reinterpret_cast<const std::uint8_t*>(body.data()),
                   body.size(), fields.data(), fields.size(), &seconds);
          retryAfter = seconds >= 0 ? std::optional(std::chrono::seconds(seconds)) : std::nullopt;
          return outcomeOf(outcome);
        });
    return QENCStatusOK;
  });
}

QENCStatus QENCReporterCreate(QENCReporterOptions options, QENCReporter* reporter) {
  const char* const function = __func__;
  return guarded(function, [&] {
    if (reporter == nullptr) {
      return invalidArgument(function, "reporter");
    }
    QENSpanReporterOptions made;
    const QENCStatus copied = withOptions(options, function, [&](QENSpanReporterOptions& given) {
      made = given;
      return QENCStatusOK;
    });
    if (copied != QENCStatusOK) {
      return copied;
    }
    return handOut<QENSpanReporter>(QENSpanReporter::makeReleasedInBackground(std::move(made)),
                                    reporter->id, function);
  });
}

QENCStatus QENCReporterRelease(QENCReporter reporter) {
  const char* const function = __func__;
  return guarded(function, [&] { return release<QENSpanReporter>(reporter.id, function); });
}

QENCStatus QENCReporterReport(QENCReporter reporter, QENCTrace trace) {
  const char* const function = __func__;
  return guarded(function, [&] {
    const auto target = resolve<QENSpanReporter>(reporter.id, function);
    const auto exported = target != nullptr ? resolve<Trace>(trace.id, function) : nullptr;
    if (exported == nullptr) {
      return QENCStatusInvalidHandle;
    }
    target->report(exported->spans);
    return QENCStatusOK;
  });
}

QENCStatus QENCReporterShutdown(QENCReporter reporter, uint32_t limitMilliseconds,
                                bool* allDelivered) {
  const char* const function = __func__;
  return guarded(function, [&] {
    const auto target = resolve<QENSpanReporter>(reporter.id, function);
    if (target == nullptr) {
      return QENCStatusInvalidHandle;
    }
    const bool delivered = target->shutdown(std::chrono::milliseconds(limitMilliseconds));
    if (allDelivered != nullptr) {
      *allDelivered = delivered;
    }
    return QENCStatusOK;
  });
}

QENCStatus QENCReporterSetConsent(QENCReporter reporter, QENCConsent consent) {
  const char* const function = __func__;
  return guarded(function, [&] {
    const auto target = resolve<QENSpanReporter>(reporter.id, function);
    if (target == nullptr) {
      return QENCStatusInvalidHandle;
    }
    const auto given = consentOf(consent);
    if (!given) {
      return invalidArgument(function, "consent");
    }
    target->setConsent(*given);
    return QENCStatusOK;
  });
}

QENCStatus QENCReporterSetDeviceConditions(QENCReporter reporter,
                                           const QENCDeviceConditions* conditions) {
  const char* const function = __func__;
  return guarded(function, [&] {
    const auto target = resolve<QENSpanReporter>(reporter.id, function);
    if (target == nullptr) {
      return QENCStatusInvalidHandle;
    }
    if (conditions == nullptr) {
      return invalidArgument(function, "conditions");
    }
    const double level = conditions->batteryLevel;
    target->setDeviceConditions({conditions->online, conditions->metered, conditions->powerSave,
                                 level >= 0 && level <= 1 ? std::optional(level) : std::nullopt,
                                 conditions->charging});
    return QENCStatusOK;
  });
}

QENCStatus QENCReporterGetCounters(QENCReporter reporter, QENCReporterCounters* counters) {
  const char* const function = __func__;
  return guarded(function, [&] {
    const auto target = resolve<QENSpanReporter>(reporter.id, function);
    if (target == nullptr) {
      return QENCStatusInvalidHandle;
    }
    if (counters == nullptr) {
      return invalidArgument(function, "counters");
    }
    const QENSpanReporterCounters now = target->counters();
    *counters = QENCReporterCounters{now.accepted, now.persisted, now.delivered, now.dropped()};
    return QENCStatusOK;
  });
}
