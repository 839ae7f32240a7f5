#ifndef QEN_PERFORMANCE_LOGGER_C_H
#define QEN_PERFORMANCE_LOGGER_C_H

/*
 * The library's C interface, for hosts written in other languages (Swift, Java over JNI, Dart,
 * JavaScript engines). Every function is safe to call from any thread.
 *
 * Handles. A metric, a trace (a finished tree's exported spans), a spool and a reporter are each
 * named by a handle: a small struct holding an id, copied by value. A handle made by a Create
 * function must be given to the matching Release once; after that, and for a handle of another
 * kind or a zero one, every function reports the mistake through the library's assertion facility
 * (the developer log) and returns QENCStatusInvalidHandle without doing anything. A released
 * handle stays invalid: its id comes back only after its slot has been reused 2^32 times.
 *
 * Strings are UTF-8, given as a pointer and a length in bytes: no terminating NUL is needed or
 * read. Ill-formed UTF-8 is kept and replaced by U+FFFD when encoded. A null pointer with a
 * length of 0 is the empty string; a null pointer with another length is QENCStatusInvalidArgument.
 * The library copies every string it is given before the call returns.
 *
 * Times are monotonic seconds (QENCMonotonicTimeNow), as doubles.
 *
 * Errors. Every function that can fail returns a status; none throws, aborts or leaves an
 * exception of any language pending. Outputs are written only when the status is QENCStatusOK.
 */

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#if defined(_WIN32)
#define QENC_EXPORT __declspec(dllexport)
#else
#define QENC_EXPORT __attribute__((visibility("default")))
#endif

/* C++ gives the enumerations int as their type, as C does, so that any value a C caller passes
 * is one the library may read (and refuse). */
#ifdef __cplusplus
#define QENC_ENUM(name) enum name : int
#else
#define QENC_ENUM(name) enum name
#endif

#ifdef __cplusplus
extern "C" {
#endif

typedef QENC_ENUM(QENCStatus){
    QENCStatusOK = 0,
    QENCStatusInvalidHandle = 1,   /* zero, released, or of another kind (reported) */
    QENCStatusInvalidArgument = 2, /* a null output, a null string with a length, a bad value */
    QENCStatusNotFinished = 3,     /* export of a metric that has not stopped */
    QENCStatusFailed = 4           /* out of memory, or a file that could not be opened */
} QENCStatus;

typedef struct QENCMetric {
  uint64_t id;
} QENCMetric;
typedef struct QENCTrace {
  uint64_t id;
} QENCTrace;
typedef struct QENCSpool {
  uint64_t id;
} QENCSpool;
typedef struct QENCReporter {
  uint64_t id;
} QENCReporter;
typedef struct QENCScreenDisplay {
  uint64_t id;
} QENCScreenDisplay;

/* Bytes the library made for the caller, who owns them until QENCBufferRelease. */
typedef struct QENCBuffer {
  uint8_t* data;
  size_t length;
} QENCBuffer;

QENC_EXPORT double QENCMonotonicTimeNow(void);

/* ==== Metrics ==== */

/* Makes a metric as the C++ initWithName does: its start is announced, so that a C++ metric that
 * adopts starting metrics (a subclass's addChildMetricIfNeeded) may adopt it. It adopts none
 * itself: children are added with QENCMetricAddChild. The caller owns *metric: release it once,
 * whether or not a parent keeps the metric alive. */
QENC_EXPORT QENCStatus QENCMetricCreate(const char* name, size_t nameLength, double uploadFraction,
                                        QENCMetric* metric);
/* A leaf: a metric whose start is not announced, so that no listener adopts it (the cheapest
 * kind, for a measurement that has no children). */
QENC_EXPORT QENCStatus QENCMetricCreateLeaf(const char* name, size_t nameLength,
                                            QENCMetric* metric);
QENC_EXPORT QENCStatus QENCMetricRelease(QENCMetric metric);
/* Metric handles made and not yet released, for a host checking that it releases them all. */
QENC_EXPORT size_t QENCMetricHandleCount(void);

/* The first start wins; a stop before a start and a second stop change nothing. A time is
 * monotonic seconds (QENCMonotonicTimeNow); NaN, an infinity or a negative one is refused with
 * QENCStatusInvalidArgument, and nothing changes. */
QENC_EXPORT QENCStatus QENCMetricStart(QENCMetric metric);
QENC_EXPORT QENCStatus QENCMetricStartWithTime(QENCMetric metric, double time);
QENC_EXPORT QENCStatus QENCMetricStop(QENCMetric metric);
QENC_EXPORT QENCStatus QENCMetricStopWithTime(QENCMetric metric, double time);
/* Invalidates with `stopReason` (QENPerformanceMetricStopReason: -1 to 5; any other is refused),
 * stopping the metric now, or at `time` for the WithTime form, unless it has stopped already. */
QENC_EXPORT QENCStatus QENCMetricInvalidate(QENCMetric metric, int64_t stopReason);
QENC_EXPORT QENCStatus QENCMetricInvalidateWithTime(QENCMetric metric, int64_t stopReason,
                                                    double time);

/* The parent keeps the child alive as long as the parent lives; the caller still releases its
 * own handle of the child. A child that would close a cycle is reported and not added:
 * QENCStatusInvalidArgument. */
QENC_EXPORT QENCStatus QENCMetricAddChild(QENCMetric parent, QENCMetric child);

QENC_EXPORT QENCStatus QENCMetricAddAnnotation(QENCMetric metric, const char* name,
                                               size_t nameLength, double time);
QENC_EXPORT QENCStatus QENCMetricAddStringTag(QENCMetric metric, const char* key, size_t keyLength,
                                              const char* value, size_t valueLength);
QENC_EXPORT QENCStatus QENCMetricAddBoolTag(QENCMetric metric, const char* key, size_t keyLength,
                                            bool value);
QENC_EXPORT QENCStatus QENCMetricAddInt16Tag(QENCMetric metric, const char* key, size_t keyLength,
                                             int16_t value);
QENC_EXPORT QENCStatus QENCMetricAddInt32Tag(QENCMetric metric, const char* key, size_t keyLength,
                                             int32_t value);
QENC_EXPORT QENCStatus QENCMetricAddInt64Tag(QENCMetric metric, const char* key, size_t keyLength,
                                             int64_t value);

/* Called once when the metric stops or is invalidated, on a thread of the library's (at once, on
 * the calling thread, for a metric already finished), with `userData` as given. It may call any
 * function of this interface, releasing this very metric included. */
typedef void (*QENCCompletion)(void* userData, bool valid);
/* Called exactly once with `userData` when the completion can no longer run: after it ran, or
 * when the metric goes without having finished (on the thread whose release let it go). Where
 * `userData` owns something, this is where it is freed. */
typedef void (*QENCRelease)(void* userData);
/* `release` may be NULL. On a status other than QENCStatusOK neither is ever called, and
 * `userData` stays the caller's. */
QENC_EXPORT QENCStatus QENCMetricAddCompletion(QENCMetric metric, QENCCompletion completion,
                                               QENCRelease release, void* userData);

QENC_EXPORT QENCStatus QENCMetricShouldUpload(QENCMetric metric, bool* shouldUpload);
QENC_EXPORT QENCStatus QENCMetricIdentifiers(QENCMetric metric, int64_t* traceId, int64_t* spanId);

/* ==== App start ==== */

/* What the host knows of how its start began, or'ed; 0 is a new process started for the user,
 * its first screen made anew. */
typedef enum QENCAppStartFlag {
    QENCAppStartProcessWasRunning = 1,      /* the process was there before this start */
    QENCAppStartScreenBroughtToFront = 2,   /* an existing screen only came back to the front */
    QENCAppStartRestoredFromSavedState = 4, /* the screen was restored from saved state */
    QENCAppStartPrewarmedBySystem = 8,      /* the system started the process ahead of the user */
    QENCAppStartStartedInBackground = 16    /* the process began for a push, a broadcast, a job */
} QENCAppStartFlag;
typedef enum QENCAppStartType {
    QENCAppStartNone = 0, /* no user sat through it: no screen yet, or one long after its process */
    QENCAppStartCold = 1,
    QENCAppStartWarm = 2,
    QENCAppStartHot = 3,
    QENCAppStartPrewarmed = 4
} QENCAppStartType;

/* Tells the start's type from the process's start time and its first screen's (seconds on
 * QENCMonotonicTimeNow's clock; NaN for the screen while there is none) and tags startMetric with
 * app.start.type ("cold", "warm", "hot", "prewarmed"). A cold start is one whose screen came within
 * 60 s of its process. With QENCAppStartNone nothing is tagged: the host invalidates its start-up
 * metric rather than upload it. A time that is not finite, a screen before its process, or an
 * unknown flag: QENCStatusInvalidArgument. */
QENC_EXPORT QENCStatus QENCMetricTagAppStart(QENCMetric startMetric, double processStartTime,
                                             double firstScreenTime, uint32_t flags,
                                             QENCAppStartType* type);

/* ==== Propagation headers ==== */

/* Called once per header, with strings valid only during the call. */
typedef void (*QENCHeaderVisitor)(void* userData, const char* name, size_t nameLength,
                                  const char* value, size_t valueLength);
/* The hosts that requests may carry propagation headers to, for the whole process; none until
 * it is set. Trace ids sent to a third party would tell it which of its requests belong to one
 * user's session, so an app lists its own hosts. Each entry is a host suffix: "example.com"
 * covers it and its subdomains, "*" every host; an entry no host could match (empty, with a
 * space, ':', '/' or '@') is reported and left out. `hosts[i]` is `hostLengths[i]` bytes; the
 * strings are copied. Every call below that gives headers for a URL applies it, and so does each
 * redirect the Java adapter follows. */
QENC_EXPORT QENCStatus QENCSetPropagationHosts(const char* const* hosts, const size_t* hostLengths,
                                               size_t count);

/* The headers of a request to `url` measured by `requestMetric`, a child in the tree it belongs
 * to: the tree's trace id, the request metric's span id, its parent's span id (none for a metric
 * without a parent) and the root's upload decision. None, with QENCStatusOK, when the URL's host
 * is not one the app listed; QENCStatusInvalidArgument when `url` is not a URL. */
QENC_EXPORT QENCStatus QENCMetricPropagationHeaders(QENCMetric requestMetric, const char* url,
                                                    size_t urlLength, QENCHeaderVisitor visitor,
                                                    void* userData);

/* A span id drawn for a request to `url` made under `parent`, and the headers that carry it: the
 * tree's trace id, the drawn id, the parent's span id and the root's upload decision. Give the
 * drawn id to QENCEndpointMetricCreate, so that the request's span is the one the server's spans
 * join. When the URL's host is not one the app listed: QENCStatusOK, no header, and
 * *requestSpanId 0 (nothing drawn). */
QENC_EXPORT QENCStatus QENCPropagationHeadersForRequest(QENCMetric parent, const char* url,
                                                        size_t urlLength, int64_t* requestSpanId,
                                                        QENCHeaderVisitor visitor, void* userData);

/* ==== Network requests ==== */

/* One HTTP request's timing as a network stack reports it (OkHttp's EventListener, Cronet): wall-
 * clock seconds since 1970, NaN for a phase the request did not go through (a reused connection
 * has no DNS lookup, connect or TLS handshake). */
typedef struct QENCRequestTiming {
  double fetchStart;
  double domainLookupStart;
  double domainLookupEnd;
  double connectStart;
  double secureConnectionStart;
  double secureConnectionEnd;
  double connectEnd;
  double requestStart;
  double requestEnd;
  double responseStart;
  double responseEnd;
  int64_t statusCode;
  int64_t responseHeaderBytes;
  int64_t responseBodyBytes;
  bool reusedConnection;
} QENCRequestTiming;

/* A finished endpoint metric for the request: named "resource_<path>", from fetchStart to
 * responseEnd, with a child span per phase (dns, conn, tls, req, resp) and the request's status,
 * size and timings as tags. `requestSpanId` is the id its propagation headers carried (0: none
 * were sent). The caller owns *metric; add it to a parent to export it in that tree. */
QENC_EXPORT QENCStatus QENCEndpointMetricCreate(const char* url, size_t urlLength,
                                                const char* method, size_t methodLength,
                                                const QENCRequestTiming* timing,
                                                int64_t requestSpanId, QENCMetric* metric);

/* ==== Application lifecycle ==== */

typedef QENC_ENUM(QENCApplicationEvent){QENCApplicationDidEnterBackground = 0,
                                        QENCApplicationWillResignActive = 1,
                                        QENCApplicationWillEnterForeground = 2,
                                        QENCApplicationDidBecomeActive = 3} QENCApplicationEvent;

/* Posts the application notification a platform posts for the event (an Android app calls it from
 * its lifecycle observer). */
QENC_EXPORT QENCStatus QENCPostApplicationEvent(QENCApplicationEvent event);
/* Annotates the metric with every application event from now on ("app.enter.background", ...). */
QENC_EXPORT QENCStatus QENCMetricObserveApplicationEvents(QENCMetric metric);

/* ==== Frames ==== */

/* One frame the host drew (from its frame-metrics or display-link callback): its start in seconds
 * on QENCMonotonicTimeNow's clock, how long it took, and the interval the display expected of it
 * then (1 / its refresh rate at that frame), in seconds. Slow past that interval by more than the
 * tolerance, frozen from 700 ms. Each metric running tags itself at its stop with what it saw:
 * frames.total, frames.slow, frames.frozen, frames.delay_ms (time past the intervals). A time that
 * is not finite, or a duration or interval not above 0: QENCStatusInvalidArgument, left out. */
QENC_EXPORT QENCStatus QENCReportFrame(double startTime, double duration, double expectedInterval);
/* How far past its interval a frame may run and still not be slow: at least 0 seconds (0.001 by
 * default); otherwise QENCStatusInvalidArgument, and it stays. */
QENC_EXPORT QENCStatus QENCSetSlowFrameTolerance(double seconds);

/* A screen's time to initial and full display, as two child spans of its metric from its creation
 * (creationTime, on QENCMonotonicTimeNow's clock): "ui.load.initial_display" ends with the first
 * frame begun once it was created, "ui.load.full_display" with the first frame begun once the app
 * says it is fully drawn (with the initial display if said before it), or at fullDisplayTimeout
 * seconds (0: 30 s) tagged "ui.load.stop_reason" = "timeout". The caller owns the handle, which
 * only reports; releasing it stops nothing: the spans still come with the frames. */
QENC_EXPORT QENCStatus QENCScreenDisplayCreate(QENCMetric screen, double creationTime,
                                               double fullDisplayTimeout,
                                               QENCScreenDisplay* display);
QENC_EXPORT QENCStatus QENCScreenDisplayReportFullyDrawn(QENCScreenDisplay display, double time);
QENC_EXPORT QENCStatus QENCScreenDisplayRelease(QENCScreenDisplay display);

/* ==== Export ==== */

typedef QENC_ENUM(QENCFormat){
    QENCFormatZipkinV2JSON = 0, QENCFormatZipkinV1Thrift = 1, /* as a v1 backend reads it */
    QENCFormatOTLPJSON = 2, QENCFormatChromeTrace = 3         /* for files, not for a reporter */
} QENCFormat;

/* The spans of a finished top-level metric's tree, for the signed-in user (`userId` may be null:
 * nobody) and the host's platform label. QENCStatusNotFinished for a metric still running. The
 * caller owns *trace. */
QENC_EXPORT QENCStatus QENCTraceCreate(QENCMetric metric, const char* userId, size_t userIdLength,
                                       const char* platform, size_t platformLength,
                                       QENCTrace* trace);
QENC_EXPORT QENCStatus QENCTraceRelease(QENCTrace trace);
QENC_EXPORT QENCStatus QENCTraceSpanCount(QENCTrace trace, size_t* count);
/* The spans in `format`, for the service named; the caller owns *encoded. */
QENC_EXPORT QENCStatus QENCTraceEncode(QENCTrace trace, QENCFormat format, const char* service,
                                       size_t serviceLength, QENCBuffer* encoded);
QENC_EXPORT void QENCBufferRelease(QENCBuffer* buffer);

/* ==== Delivery ==== */

/* A spool keeps batches in an SQLite file through a killed app until a reporter delivers them.
 * 0 for a bound takes its default (8 MiB, seven days). The caller owns *spool; a reporter given
 * it keeps it open as long as it needs it. */
QENC_EXPORT QENCStatus QENCSpoolCreate(const char* path, size_t pathLength, uint64_t maximumBytes,
                                       uint32_t maximumAgeSeconds, QENCSpool* spool);
QENC_EXPORT QENCStatus QENCSpoolRelease(QENCSpool spool);

/* Whether the user lets telemetry leave the device; a reporter starts granted. Pending keeps
 * spans (in the spool, else in the queue) and sends none; granted sends them; not granted keeps
 * none, and what the spool held is deleted when QENCReporterSetConsent returns. */
typedef QENC_ENUM(QENCConsent){QENCConsentPending = 0, QENCConsentGranted = 1,
                               QENCConsentNotGranted = 2} QENCConsent;

/* What a reporter is made with: an object of the library's rather than a struct, so that a setting
 * added later (a setter, or a value of QENCReporterLimit) breaks no compiled caller. Made with the
 * collector's URL; every other setting keeps the reporter's default until set. QENCReporterCreate
 * copies what it holds, so it may be released, or set again for another reporter, at once. A
 * setter refuses a value the reporter cannot take (below the setting's floor, a format it does not
 * send) with QENCStatusInvalidArgument and keeps what it had. Setters on one options object from
 * two threads at once are serialised. */
typedef struct QENCReporterOptions {
  uint64_t id;
} QENCReporterOptions;
QENC_EXPORT QENCStatus QENCReporterOptionsCreate(const char* collectorURL,
                                                 size_t collectorURLLength,
                                                 QENCReporterOptions* options);
QENC_EXPORT QENCStatus QENCReporterOptionsRelease(QENCReporterOptions options);
/* Zipkin v2 JSON, gzipped, by default; not QENCFormatChromeTrace. */
QENC_EXPORT QENCStatus QENCReporterOptionsSetFormat(QENCReporterOptions options, QENCFormat format,
                                                    bool gzip);
/* The service every span belongs to; the platform's name ("android", "ios") until set. */
QENC_EXPORT QENCStatus QENCReporterOptionsSetService(QENCReporterOptions options,
                                                     const char* service, size_t serviceLength);
/* Sent with every request besides Content-Type, Content-Encoding and User-Agent; copied. A name
 * with a colon or a line break anywhere is refused. */
QENC_EXPORT QENCStatus QENCReporterOptionsAddHeader(QENCReporterOptions options, const char* name,
                                                    size_t nameLength, const char* value,
                                                    size_t valueLength);
/* A reporter made with it keeps the spool open as long as it needs it. */
QENC_EXPORT QENCStatus QENCReporterOptionsSetSpool(QENCReporterOptions options, QENCSpool spool);
QENC_EXPORT QENCStatus QENCReporterOptionsSetConsent(QENCReporterOptions options,
                                                     QENCConsent consent);
/* Query keys whose values the URL scrubbing keeps, matched exactly as written. */
QENC_EXPORT QENCStatus QENCReporterOptionsAddKeptQueryKey(QENCReporterOptions options,
                                                          const char* key, size_t keyLength);

/* The numbers a reporter works within, each with its floor; the durations in milliseconds. */
typedef QENC_ENUM(QENCReporterLimit){
    QENCLimitMaximumSpansPerReport = 0,          /* 1000, at least 1 */
    QENCLimitMaximumSpansPerMinute = 1,          /* 0: no rate limit */
    QENCLimitMaximumQueuedSpans = 2,             /* 10000, at least 1 */
    QENCLimitMaximumBatchSpans = 3,              /* 100, at least 1 */
    QENCLimitMaximumBatchBytes = 4,              /* 512 KiB, at least 1 */
    QENCLimitMaximumTagsPerSpan = 5,             /* 64, at least 1 */
    QENCLimitMaximumTagValueBytes = 6,           /* 4096, at least 16 */
    QENCLimitMaximumRetries = 7,                 /* 4, at most 2^31 - 1 */
    QENCLimitFlushIntervalMilliseconds = 8,      /* 1000 */
    QENCLimitInitialBackoffMilliseconds = 9,     /* 100 */
    QENCLimitMaximumBackoffMilliseconds = 10,    /* 5000, at least the initial back-off */
    QENCLimitMaximumRetryAfterMilliseconds = 11, /* ten minutes */
    QENCLimitRequestTimeoutMilliseconds = 12,    /* 5000, at least 1 */
    QENCLimitShutdownMilliseconds = 13,          /* 5000: what a release gives the shutdown */
    QENCLimitMaximumSpooledRetries = 14          /* 100, at most 2^31 - 1 */
} QENCReporterLimit;
QENC_EXPORT QENCStatus QENCReporterOptionsSetLimit(QENCReporterOptions options,
                                                   QENCReporterLimit limit, uint64_t value);
/* Sending also pauses below `minimumBatteryLevel` (0 to 1; 0.1 by default) when not charging, and
 * on a metered network when `pausesOnMeteredNetwork`. */
QENC_EXPORT QENCStatus QENCReporterOptionsSetDeviceThresholds(QENCReporterOptions options,
                                                              double minimumBatteryLevel,
                                                              bool pausesOnMeteredNetwork);

/* The host's say over each tag about to leave (after URL scrubbing), and over each span's name
 * (key "span.name"): return false to drop the tag (a name refused leaves as "redacted"), or call
 * QENCTagValueReplace to change its value. It runs on the reporter's thread, or a watcher's, and
 * may run on two at once. `release` (may be NULL) runs once with `userData` when no reporter made
 * with these options can call the filter any more. */
typedef struct QENCTagValue QENCTagValue;
typedef bool (*QENCTagFilter)(void* userData, const char* key, size_t keyLength,
                              QENCTagValue* value);
QENC_EXPORT QENCStatus QENCReporterOptionsSetTagFilter(QENCReporterOptions options,
                                                       QENCTagFilter filter, QENCRelease release,
                                                       void* userData);
/* The value as text, as the JSON formats write it; valid until the filter returns. */
QENC_EXPORT void QENCTagValueRead(const QENCTagValue* value, const char** text, size_t* length);
/* The value leaves as this string instead; copied. */
QENC_EXPORT void QENCTagValueReplace(QENCTagValue* value, const char* text, size_t length);

/* How one post through a host's transport went. */
typedef QENC_ENUM(QENCPostOutcome){
    QENCPostDelivered = 0,           /* the collector took it: 2xx */
    QENCPostRetry = 1,               /* no connection, no whole answer, or a 5xx */
    QENCPostSlowDown = 2,            /* 429 or 503: *retryAfterSeconds as the answer said */
    QENCPostTooLarge = 3,            /* 413 */
    QENCPostUnsupportedEncoding = 4, /* 415 */
    QENCPostRefused = 5              /* any other 3xx or 4xx: final */
} QENCPostOutcome;
typedef struct QENCHeader {
  const char* name;
  size_t nameLength;
  const char* value;
  size_t valueLength;
} QENCHeader;
/* Posts `body` with `headers` (Content-Type, Content-Encoding and User-Agent among them; all
 * valid only during the call) through the host's own HTTP stack, with its proxies and certificate
 * pinning, and says how it went; on QENCPostSlowDown it may set *retryAfterSeconds (-1 until
 * set). It runs on a thread of the library's, one post at a time, and may block: a reporter waits
 * for it only within its limits and gives up a post that takes longer (the call still returns
 * to the library, which then ignores it). A value outside QENCPostOutcome counts the batch lost.
 * `release` (may be NULL) runs once with `userData` when no reporter can post through it any
 * more. Without a transport, the reporter posts with libcurl. */
typedef QENCPostOutcome (*QENCPost)(void* userData, const uint8_t* body, size_t bodyLength,
                                    const QENCHeader* headers, size_t headerCount,
                                    int64_t* retryAfterSeconds);
QENC_EXPORT QENCStatus QENCReporterOptionsSetTransport(QENCReporterOptions options, QENCPost post,
                                                       QENCRelease release, void* userData);

typedef struct QENCReporterCounters {
  uint64_t accepted;
  uint64_t persisted;
  uint64_t delivered;
  uint64_t dropped;
} QENCReporterCounters;

/* A reporter sends on a thread of its own; the caller owns *reporter. Releasing it returns at once:
 * its shutdown, within 5 s, goes on on a thread of the library's (QENCReporterShutdown waits for
 * it, for a caller that wants to). */
QENC_EXPORT QENCStatus QENCReporterCreate(QENCReporterOptions options, QENCReporter* reporter);
QENC_EXPORT QENCStatus QENCReporterRelease(QENCReporter reporter);
/* Queues the trace's spans and returns at once; the trace stays the caller's. */
QENC_EXPORT QENCStatus QENCReporterReport(QENCReporter reporter, QENCTrace trace);
/* Sends what is queued for at most `limitMilliseconds`, then stops; *allDelivered (may be null)
 * says whether everything accepted was delivered. */
QENC_EXPORT QENCStatus QENCReporterShutdown(QENCReporter reporter, uint32_t limitMilliseconds,
                                            bool* allDelivered);
QENC_EXPORT QENCStatus QENCReporterGetCounters(QENCReporter reporter,
                                               QENCReporterCounters* counters);

QENC_EXPORT QENCStatus QENCReporterSetConsent(QENCReporter reporter, QENCConsent consent);

/* What the host knows of the device. Sending pauses while offline, in power-save, or under 10 %
 * battery and not charging, keeping what it holds, and resumes when that changes; the
 * conditions are copied. */
typedef struct QENCDeviceConditions {
  bool online;
  bool metered;
  bool powerSave;
  double batteryLevel; /* 0 to 1; anything else (a negative, NaN): unknown */
  bool charging;
} QENCDeviceConditions;
QENC_EXPORT QENCStatus QENCReporterSetDeviceConditions(QENCReporter reporter,
                                                       const QENCDeviceConditions* conditions);

/* ==== Hangs ==== */

/* Writes the main thread's stack as text into `buffer` (at most `capacity` bytes, no terminator
 * needed) and returns the bytes written; called on the watchdog's thread as a hang begins. */
typedef size_t (*QENCStackCapture)(void* userData, char* buffer, size_t capacity);
/* Starts the process's hang watchdog, or starts it anew: the main thread calls QENCHeartbeat
 * often (every few hundred milliseconds), and a library thread checks every quarter of
 * `thresholdSeconds` (0: 2 s; at least 0.1 s, else QENCStatusInvalidArgument) that one came. A gap
 * of the threshold, in the foreground and not across a suspension of the process, is a hang; each
 * top-level metric running through it gets a child span "app.hang", tagged "app.hang.stack" with
 * what `capture` (may be NULL) wrote. `release` (may be NULL) runs once with `userData` when the
 * watchdog is started anew or stopped. */
QENC_EXPORT QENCStatus QENCHangMonitorStart(double thresholdSeconds, QENCStackCapture capture,
                                            QENCRelease release, void* userData);
/* Keeps the hang going on in `spool` from now on (after a start: a start forgets it), so that a
 * kill during a hang is sent by the next launch's reporter as a span "app.hang" tagged
 * "app.hang.fatal" = true, in `format` (not Chrome trace) for `service` on `platform`. */
QENC_EXPORT QENCStatus QENCHangMonitorKeepOngoingHangs(QENCSpool spool, QENCFormat format,
                                                       const char* service, size_t serviceLength,
                                                       const char* platform, size_t platformLength);
QENC_EXPORT QENCStatus QENCHeartbeat(void);
/* Stops the watchdog's thread; ended hangs not yet given to a metric are forgotten. */
QENC_EXPORT QENCStatus QENCHangMonitorStop(void);

#ifdef __cplusplus
}
#endif

#endif
