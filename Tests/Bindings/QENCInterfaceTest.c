// The C interface driven from C: every function, bad handles and arguments, and a completion
// callback that releases its own metric. Exits 0 when every check holds.
#include <math.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "QENPerformanceLoggerC.h"

static int failures = 0;

#define CHECK(condition)                                                      \
  do {                                                                        \
    if (!(condition)) {                                                       \
      fprintf(stderr, "%s:%d: failed: %s\n", __FILE__, __LINE__, #condition); \
      ++failures;                                                             \
    }                                                                         \
  } while (0)

#define TEXT(literal) literal, sizeof(literal) - 1
#define OK(call) CHECK((call) == QENCStatusOK)

static int contains(const QENCBuffer* buffer, const char* text) {
  const size_t length = strlen(text);
  for (size_t at = 0; buffer->length >= length && at <= buffer->length - length; ++at) {
    if (memcmp(buffer->data + at, text, length) == 0) {
      return 1;
    }
  }
  return 0;
}

// A completion that releases the metric it completes, then tells the test.
struct Completion {
  pthread_mutex_t mutex;
  pthread_cond_t done;
  QENCMetric metric;
  int calls;
  int valid;
  QENCStatus releaseStatus;
  int releases;
};

static void countRelease(void* userData) {
  struct Completion* completion = userData;
  pthread_mutex_lock(&completion->mutex);
  ++completion->releases;
  pthread_cond_signal(&completion->done);
  pthread_mutex_unlock(&completion->mutex);
}

static void completeAndRelease(void* userData, bool valid) {
  struct Completion* completion = userData;
  const QENCStatus status = QENCMetricRelease(completion->metric);
  pthread_mutex_lock(&completion->mutex);
  completion->releaseStatus = status;
  completion->valid = valid;
  ++completion->calls;
  pthread_cond_signal(&completion->done);
  pthread_mutex_unlock(&completion->mutex);
}

// Its user data is released once after it ran; a metric that never finishes releases its
// completion's user data when it goes.
static void checkCompletionReleasingItsMetric(void) {
  struct Completion completion = {
      PTHREAD_MUTEX_INITIALIZER, PTHREAD_COND_INITIALIZER, {0}, 0, 0, QENCStatusFailed, 0};
  OK(QENCMetricCreate(TEXT("upload"), 1.0, &completion.metric));
  OK(QENCMetricAddCompletion(completion.metric, completeAndRelease, countRelease, &completion));
  CHECK(QENCMetricAddCompletion(completion.metric, NULL, NULL, NULL) == QENCStatusInvalidArgument);
  OK(QENCMetricStart(completion.metric));
  OK(QENCMetricInvalidate(completion.metric, 1));
  pthread_mutex_lock(&completion.mutex);
  while (completion.releases == 0) {
    pthread_cond_wait(&completion.done, &completion.mutex);
  }
  pthread_mutex_unlock(&completion.mutex);
  CHECK(completion.calls == 1 && !completion.valid && completion.releaseStatus == QENCStatusOK);
  CHECK(QENCMetricStart(completion.metric) == QENCStatusInvalidHandle);

  struct Completion never = {
      PTHREAD_MUTEX_INITIALIZER, PTHREAD_COND_INITIALIZER, {0}, 0, 0, QENCStatusFailed, 0};
  OK(QENCMetricCreate(TEXT("never_finished"), 1.0, &never.metric));
  OK(QENCMetricStart(never.metric));
  OK(QENCMetricAddCompletion(never.metric, completeAndRelease, countRelease, &never));
  OK(QENCMetricRelease(never.metric));
  CHECK(never.calls == 0 && never.releases == 1);
  CHECK(completion.releases == 1);
}

struct Headers {
  char text[512];
};

static void collectHeader(void* userData, const char* name, size_t nameLength, const char* value,
                          size_t valueLength) {
  struct Headers* headers = userData;
  const size_t used = strlen(headers->text);
  snprintf(headers->text + used, sizeof headers->text - used, "%.*s=%.*s;", (int)nameLength, name,
           (int)valueLength, value);
}

static int hasHeader(const struct Headers* headers, const char* name, int64_t id) {
  char expected[64];
  snprintf(expected, sizeof expected, "%s=%016llx;", name, (unsigned long long)id);
  return strstr(headers->text, expected) != NULL;
}

// A tree measured with explicit times, every kind of tag and annotation, and its headers.
static QENCMetric measuredTree(QENCMetric* request) {
  QENCMetric root;
  OK(QENCMetricCreate(TEXT("home_feed_render"), 1.0, &root));
  OK(QENCMetricCreate(TEXT("feed_request"), 1.0, request));
  const double now = QENCMonotonicTimeNow();
  OK(QENCMetricStartWithTime(root, now - 1.0));
  OK(QENCMetricAddChild(root, *request));
  OK(QENCMetricStartWithTime(*request, now - 0.5));
  OK(QENCMetricAddAnnotation(*request, TEXT("first_byte"), now - 0.25));
  OK(QENCMetricAddStringTag(*request, TEXT("http.path"), TEXT("/feed")));
  OK(QENCMetricAddBoolTag(*request, TEXT("cached"), true));
  OK(QENCMetricAddInt16Tag(*request, TEXT("retries"), -2));
  OK(QENCMetricAddInt32Tag(*request, TEXT("status"), 200));
  OK(QENCMetricAddInt64Tag(*request, TEXT("bytes"), 5000000000));
  CHECK(QENCMetricAddStringTag(*request, NULL, 3, TEXT("x")) == QENCStatusInvalidArgument);
  OK(QENCMetricAddStringTag(*request, TEXT("empty"), NULL, 0));

  int64_t rootTrace = 0, rootSpan = 0, requestTrace = 0, requestSpan = 0;
  OK(QENCMetricIdentifiers(root, &rootTrace, &rootSpan));
  OK(QENCMetricIdentifiers(*request, &requestTrace, &requestSpan));
  CHECK(QENCMetricIdentifiers(root, NULL, &rootSpan) == QENCStatusInvalidArgument);
  struct Headers headers = {""};
  const char* const ownHosts[] = {"api.example.com"};
  const size_t ownHostLengths[] = {strlen(ownHosts[0])};
  OK(QENCSetPropagationHosts(ownHosts, ownHostLengths, 1));
  OK(QENCMetricPropagationHeaders(*request, TEXT("https://ads.tracker.test/x"), collectHeader,
                                  &headers));
  CHECK(headers.text[0] == '\0');  // a host the app did not list learns nothing
  OK(QENCMetricPropagationHeaders(*request, TEXT("https://v2.API.example.com/feed"), collectHeader,
                                  &headers));
  CHECK(hasHeader(&headers, "X-B3-SpanId", requestSpan) &&
        hasHeader(&headers, "X-B3-ParentSpanId", rootSpan) &&
        hasHeader(&headers, "X-B3-TraceId", rootTrace));
  CHECK(QENCMetricPropagationHeaders(*request, TEXT("https://api.example.com/"), NULL, NULL) ==
        QENCStatusInvalidArgument);

  OK(QENCMetricStopWithTime(*request, now - 0.1));
  OK(QENCMetricStop(root));
  bool upload = false;
  CHECK(QENCMetricShouldUpload(root, &upload) == QENCStatusOK && upload);
  return root;
}

static void checkExport(QENCTrace trace) {
  size_t count = 0;
  CHECK(QENCTraceSpanCount(trace, &count) == QENCStatusOK && count == 2);
  static const struct {
    QENCFormat format;
    const char* mustContain;
  } kFormats[] = {{QENCFormatZipkinV2JSON, "\"http.path\":\"/feed\""},
                  {QENCFormatZipkinV1Thrift, "feed_request"},
                  {QENCFormatOTLPJSON, "\"resourceSpans\""},
                  {QENCFormatChromeTrace, "\"traceEvents\""}};
  for (size_t index = 0; index < sizeof kFormats / sizeof kFormats[0]; ++index) {
    QENCBuffer encoded = {NULL, 0};
    OK(QENCTraceEncode(trace, kFormats[index].format, TEXT("c-app"), &encoded));
    CHECK(contains(&encoded, kFormats[index].mustContain) && contains(&encoded, "c-app"));
    QENCBufferRelease(&encoded);
    CHECK(encoded.data == NULL);
  }
  QENCBuffer unused = {NULL, 0};
  CHECK(QENCTraceEncode(trace, (QENCFormat)9, TEXT("c-app"), &unused) == QENCStatusInvalidArgument);
  QENCBufferRelease(NULL);
}

// A host's tag filter: it rewrites the request's path and drops its retries.
struct Filter {
  pthread_mutex_t mutex;
  pthread_cond_t released;
  int calls;
  int releases;
};

static bool rewritePath(void* userData, const char* key, size_t keyLength, QENCTagValue* value) {
  struct Filter* filter = userData;
  const char* text = NULL;
  size_t length = 0;
  QENCTagValueRead(value, &text, &length);
  if (keyLength == 9 && memcmp(key, "http.path", 9) == 0 && length == 5)
    QENCTagValueReplace(value, TEXT("/rewritten-by-c"));
  pthread_mutex_lock(&filter->mutex);
  ++filter->calls;
  pthread_mutex_unlock(&filter->mutex);
  return keyLength != 7 || memcmp(key, "retries", 7) != 0;
}

static void releaseFilter(void* userData) {
  struct Filter* filter = userData;
  pthread_mutex_lock(&filter->mutex);
  ++filter->releases;
  pthread_cond_signal(&filter->released);
  pthread_mutex_unlock(&filter->mutex);
}

// Whether the file, or the write-ahead log beside it, holds `text`.
static int onDisk(const char* path, const char* text) {
  char walPath[4096];
  snprintf(walPath, sizeof walPath, "%s-wal", path);
  const char* files[] = {path, walPath};
  for (int index = 0; index < 2; ++index) {
    FILE* file = fopen(files[index], "rb");
    static uint8_t bytes[1 << 20];
    const size_t read = file != NULL ? fread(bytes, 1, sizeof bytes, file) : 0;
    if (file != NULL)
      fclose(file);
    const QENCBuffer buffer = {bytes, read};
    if (contains(&buffer, text))
      return 1;
  }
  return 0;
}

// Every option group set from C reaches the reporter: what it keeps on disk says so.
static void checkDelivery(QENCTrace trace, const char* spoolPath) {
  QENCSpool spool;
  OK(QENCSpoolCreate(spoolPath, strlen(spoolPath), 0, 60, &spool));
  OK(QENCHangMonitorKeepOngoingHangs(spool, QENCFormatZipkinV2JSON, TEXT("c-app"), TEXT("c")));
  CHECK(QENCHangMonitorKeepOngoingHangs(spool, QENCFormatChromeTrace, TEXT("c-app"), TEXT("c")) ==
        QENCStatusInvalidArgument);
  QENCReporterOptions options;
  // Nothing listens on port 9 of loopback: every attempt fails, and the spool keeps the spans.
  OK(QENCReporterOptionsCreate(TEXT("http://127.0.0.1:9/api/v2/spans"), &options));
  OK(QENCReporterOptionsSetFormat(options, QENCFormatZipkinV2JSON, false));
  OK(QENCReporterOptionsSetService(options, TEXT("c-app")));
  OK(QENCReporterOptionsAddHeader(options, TEXT("Authorization"), TEXT("Bearer c")));
  OK(QENCReporterOptionsSetSpool(options, spool));
  OK(QENCReporterOptionsSetConsent(options, QENCConsentPending));
  OK(QENCReporterOptionsAddKeptQueryKey(options, TEXT("size")));
  OK(QENCReporterOptionsSetLimit(options, QENCLimitMaximumTagsPerSpan, 3));
  OK(QENCReporterOptionsSetLimit(options, QENCLimitMaximumSpooledRetries, 2));
  OK(QENCReporterOptionsSetDeviceThresholds(options, 0.2, true));
  struct Filter filter = {PTHREAD_MUTEX_INITIALIZER, PTHREAD_COND_INITIALIZER, 0, 0};
  OK(QENCReporterOptionsSetTagFilter(options, rewritePath, releaseFilter, &filter));
  CHECK(QENCReporterOptionsSetFormat(options, QENCFormatChromeTrace, false) ==
        QENCStatusInvalidArgument);
  CHECK(QENCReporterOptionsSetLimit(options, QENCLimitMaximumTagValueBytes, 15) ==
        QENCStatusInvalidArgument);
  CHECK(QENCReporterOptionsSetLimit(options, QENCLimitFlushIntervalMilliseconds, UINT64_MAX) ==
        QENCStatusInvalidArgument);
  CHECK(QENCReporterOptionsSetLimit(options, (QENCReporterLimit)15, 1) ==
        QENCStatusInvalidArgument);
  CHECK(QENCReporterOptionsAddHeader(options, TEXT("X-Bad:"), TEXT("1")) ==
        QENCStatusInvalidArgument);
  CHECK(QENCReporterOptionsSetDeviceThresholds(options, NAN, false) == QENCStatusInvalidArgument);
  CHECK(QENCReporterOptionsSetConsent(options, (QENCConsent)3) == QENCStatusInvalidArgument);
  QENCReporter reporter;
  OK(QENCReporterCreate(options, &reporter));
  OK(QENCReporterOptionsRelease(options));  // the reporter took a copy
  OK(QENCSpoolRelease(spool));              // and keeps the spool open
  CHECK(QENCReporterCreate(options, &reporter) == QENCStatusInvalidHandle);
  const QENCDeviceConditions offline = {false, false, false, -1, false};
  OK(QENCReporterSetDeviceConditions(reporter, &offline));
  CHECK(QENCReporterSetDeviceConditions(reporter, NULL) == QENCStatusInvalidArgument);
  OK(QENCReporterSetConsent(reporter, QENCConsentPending));
  CHECK(QENCReporterSetConsent(reporter, (QENCConsent)3) == QENCStatusInvalidArgument);
  OK(QENCReporterReport(reporter, trace));
  bool delivered = true;
  CHECK(QENCReporterShutdown(reporter, 1000, &delivered) == QENCStatusOK && !delivered);
  QENCReporterCounters counters;
  OK(QENCReporterGetCounters(reporter, &counters));
  CHECK(counters.accepted == 2 && counters.persisted == 2 && counters.delivered == 0);
  CHECK(QENCReporterGetCounters(reporter, NULL) == QENCStatusInvalidArgument);
  CHECK(onDisk(spoolPath, "/rewritten-by-c") && onDisk(spoolPath, "qen.dropped_tags") &&
        onDisk(spoolPath, "c-app") && !onDisk(spoolPath, "\"retries\""));
  OK(QENCReporterRelease(reporter));
  pthread_mutex_lock(&filter.mutex);
  while (filter.releases == 0)  // once the reporter, on a thread of its own, has gone
    pthread_cond_wait(&filter.released, &filter.mutex);
  pthread_mutex_unlock(&filter.mutex);
  CHECK(filter.calls > 0 && filter.releases == 1);
}

// What a host's transport was given.
struct Posts {
  int count;
  int namedTheServiceAndTeam;
};

static QENCPostOutcome postThroughHost(void* userData, const uint8_t* body, size_t bodyLength,
                                       const QENCHeader* headers, size_t headerCount,
                                       int64_t* retryAfterSeconds) {
  struct Posts* posts = userData;
  const QENCBuffer buffer = {(uint8_t*)body, bodyLength};
  int team = 0;
  for (size_t index = 0; index < headerCount; ++index)
    team |= strncmp(headers[index].name, "X-Team", headers[index].nameLength) == 0;
  posts->namedTheServiceAndTeam += contains(&buffer, "c-host") && team;
  ++posts->count;
  *retryAfterSeconds = -1;
  return QENCPostDelivered;
}

// A reporter given a host's transport posts through it, not with libcurl, with the options it
// was given: a header, one span a batch, and a pause below a battery level above the default.
static void checkHostTransport(QENCTrace trace) {
  struct Posts posts = {0, 0};
  QENCReporterOptions options;
  OK(QENCReporterOptionsCreate(TEXT("https://unused.example/"), &options));
  OK(QENCReporterOptionsSetService(options, TEXT("c-host")));
  OK(QENCReporterOptionsSetFormat(options, QENCFormatZipkinV2JSON, false));
  OK(QENCReporterOptionsAddHeader(options, TEXT("X-Team"), TEXT("c")));
  OK(QENCReporterOptionsSetLimit(options, QENCLimitMaximumBatchSpans, 1));
  OK(QENCReporterOptionsSetTransport(options, postThroughHost, NULL, &posts));
  CHECK(QENCReporterOptionsSetTransport(options, NULL, NULL, NULL) == QENCStatusInvalidArgument);
  const QENCDeviceConditions lowBattery = {true, false, false, 0.3, false};
  for (int paused = 1; paused >= 0; --paused) {
    OK(QENCReporterOptionsSetDeviceThresholds(options, paused ? 0.5 : 0.2, false));
    QENCReporter reporter;
    OK(QENCReporterCreate(options, &reporter));
    OK(QENCReporterSetDeviceConditions(reporter, &lowBattery));
    OK(QENCReporterReport(reporter, trace));
    bool delivered = false;
    OK(QENCReporterShutdown(reporter, paused ? 50 : 5000, &delivered));
    CHECK(delivered == !paused && posts.count == (paused ? 0 : 2));
    OK(QENCReporterRelease(reporter));
  }
  CHECK(posts.namedTheServiceAndTeam == 2);
  OK(QENCReporterOptionsRelease(options));
}

// A request timed by a network stack, traced under a screen that hears the app go to the
// background: its span carries the id its headers sent, and a child per phase.
static void checkEndpointAndApplicationEvents(void) {
  QENCMetric screen, endpoint;
  OK(QENCMetricCreate(TEXT("screen"), 1.0, &screen));
  OK(QENCMetricStart(screen));
  OK(QENCMetricObserveApplicationEvents(screen));
  int64_t sentSpanId = 0;
  struct Headers headers = {""};
  OK(QENCPropagationHeadersForRequest(screen, TEXT("https://api.example.com/feed"), &sentSpanId,
                                      collectHeader, &headers));
  CHECK(hasHeader(&headers, "X-B3-SpanId", sentSpanId));
  CHECK(QENCPropagationHeadersForRequest(screen, TEXT("https://api.example.com/"), NULL,
                                         collectHeader, &headers) == QENCStatusInvalidArgument);

  struct timespec now;
  timespec_get(&now, TIME_UTC);
  const double t = (double)now.tv_sec + now.tv_nsec / 1e9 - 1.0;
  const QENCRequestTiming timing = {t,        t + 0.01, t + 0.02, t + 0.03, t + 0.04,
                                    t + 0.05, t + 0.05, t + 0.06, t + 0.07, t + 0.1,
                                    t + 0.2,  200,      300,      4000,     false};
  OK(QENCEndpointMetricCreate(TEXT("https://api.example.com/v3/feed"), TEXT("GET"), &timing,
                              sentSpanId, &endpoint));
  CHECK(QENCEndpointMetricCreate(TEXT("https://x"), TEXT("GET"), NULL, 0, &endpoint) ==
        QENCStatusInvalidArgument);
  OK(QENCMetricAddChild(screen, endpoint));
  OK(QENCPostApplicationEvent(QENCApplicationDidEnterBackground));
  CHECK(QENCPostApplicationEvent((QENCApplicationEvent)9) == QENCStatusInvalidArgument);
  OK(QENCMetricStop(screen));

  QENCTrace trace;
  QENCBuffer json = {NULL, 0};
  OK(QENCTraceCreate(screen, NULL, 0, TEXT("c"), &trace));
  OK(QENCTraceEncode(trace, QENCFormatZipkinV2JSON, TEXT("c-app"), &json));
  char expected[64];
  snprintf(expected, sizeof expected, "\"id\":\"%016llx\"", (unsigned long long)sentSpanId);
  CHECK(contains(&json, expected) && contains(&json, "app.enter.background"));
  CHECK(contains(&json, "\"name\":\"resource_/v3/feed\"") && contains(&json, "\"name\":\"tls\""));
  QENCBufferRelease(&json);
  OK(QENCTraceRelease(trace));
  OK(QENCMetricRelease(endpoint));
  OK(QENCMetricRelease(screen));
}

// The start's type from its times and flags; impossible facts are refused.
static void checkAppStart(void) {
  QENCMetric start;
  OK(QENCMetricCreate(TEXT("app_cold_start"), 1.0, &start));
  QENCAppStartType type = QENCAppStartCold;
  const uint32_t backToFront = QENCAppStartProcessWasRunning | QENCAppStartScreenBroughtToFront;
  CHECK(QENCMetricTagAppStart(start, 100, 100.5, backToFront, &type) == QENCStatusOK &&
        type == QENCAppStartHot);
  CHECK(QENCMetricTagAppStart(start, 100, 400, QENCAppStartStartedInBackground, &type) ==
            QENCStatusOK &&
        type == QENCAppStartWarm);
  CHECK(QENCMetricTagAppStart(start, 100, NAN, 0, &type) == QENCStatusOK &&
        type == QENCAppStartNone);
  CHECK(QENCMetricTagAppStart(start, 100, 99, 0, &type) == QENCStatusInvalidArgument);
  CHECK(QENCMetricTagAppStart(start, 100, 101, 32, &type) == QENCStatusInvalidArgument);
  OK(QENCMetricRelease(start));
}

// A frame drawn while a metric runs is among its tags, and shows the screen it measures; a frame
// of no duration is refused.
static void checkFrames(void) {
  QENCMetric screen;
  QENCScreenDisplay display;
  QENCTrace trace;
  QENCBuffer json = {NULL, 0};
  OK(QENCMetricCreate(TEXT("profile_render"), 1.0, &screen));
  const double now = QENCMonotonicTimeNow();
  OK(QENCMetricStartWithTime(screen, now));
  OK(QENCScreenDisplayCreate(screen, now, 0, &display));
  OK(QENCScreenDisplayReportFullyDrawn(display, now + 0.05));
  OK(QENCScreenDisplayRelease(display));
  OK(QENCReportFrame(now + 0.1, 0.05, 1.0 / 120));  // 41.7 ms late
  CHECK(QENCReportFrame(now + 0.2, 0, 1.0 / 60) == QENCStatusInvalidArgument);
  CHECK(QENCSetSlowFrameTolerance(-1) == QENCStatusInvalidArgument);
  CHECK(QENCScreenDisplayReportFullyDrawn(display, now) == QENCStatusInvalidHandle);
  OK(QENCMetricStopWithTime(screen, now + 1));
  OK(QENCTraceCreate(screen, NULL, 0, TEXT("c"), &trace));
  OK(QENCTraceEncode(trace, QENCFormatZipkinV2JSON, TEXT("c-app"), &json));
  CHECK(contains(&json, "\"frames.total\":\"1\",\"frames.slow\":\"1\"") &&
        contains(&json, "\"frames.delay_ms\":\"42\""));
  CHECK(contains(&json, "\"name\":\"ui.load.initial_display\",\"timestamp\"") &&
        contains(&json, "\"name\":\"ui.load.full_display\",\"timestamp\""));
  QENCBufferRelease(&json);
  OK(QENCTraceRelease(trace));
  OK(QENCMetricRelease(screen));
}

static size_t captureNothing(void* userData, char* buffer, size_t capacity) {
  (void)userData, (void)buffer, (void)capacity;
  return 0;
}

static void countCall(void* calls) {
  ++*(int*)calls;
}

// The watchdog starts, hears heartbeats and stops, letting go of the host's data once; a threshold
// under 100 ms is refused.
static void checkHangMonitor(void) {
  int released = 0;
  CHECK(QENCHangMonitorStart(0.05, NULL, NULL, NULL) == QENCStatusInvalidArgument);
  OK(QENCHangMonitorStart(0, captureNothing, countCall, &released));
  OK(QENCHeartbeat());
  OK(QENCHangMonitorStop());
  CHECK(released == 1);
}

// Zero, released and wrong-kind handles are refused, and nothing happens.
static void checkBadHandles(QENCMetric released, QENCTrace trace) {
  const QENCMetric zero = {0};
  CHECK(QENCMetricStart(zero) == QENCStatusInvalidHandle);
  CHECK(QENCMetricStop(released) == QENCStatusInvalidHandle);
  CHECK(QENCMetricStartWithTime((QENCMetric){trace.id}, 1.0) == QENCStatusInvalidHandle);
  CHECK(QENCMetricRelease(released) == QENCStatusInvalidHandle);
  CHECK(QENCMetricAddChild(zero, released) == QENCStatusInvalidHandle);
  CHECK(QENCReporterShutdown((QENCReporter){released.id}, 0, NULL) == QENCStatusInvalidHandle);
  CHECK(QENCTraceRelease((QENCTrace){released.id}) == QENCStatusInvalidHandle);
  CHECK(QENCSpoolRelease((QENCSpool){trace.id}) == QENCStatusInvalidHandle);
  CHECK(QENCMetricCreate(NULL, 4, 1.0, &released) == QENCStatusInvalidArgument);
  CHECK(QENCMetricCreate(TEXT("x"), 1.0, NULL) == QENCStatusInvalidArgument);
}

// Calls that cannot do what they are asked say so.
static void checkRefusedArguments(void) {
  QENCMetric metric, child;
  OK(QENCMetricCreate(TEXT("refusing"), 1.0, &metric));
  OK(QENCMetricCreate(TEXT("child"), 1.0, &child));
  const double times[] = {NAN, INFINITY, -INFINITY, -1.0};
  for (size_t index = 0; index < sizeof times / sizeof times[0]; ++index) {
    CHECK(QENCMetricStartWithTime(metric, times[index]) == QENCStatusInvalidArgument);
    CHECK(QENCMetricStopWithTime(metric, times[index]) == QENCStatusInvalidArgument);
    CHECK(QENCMetricInvalidateWithTime(metric, 1, times[index]) == QENCStatusInvalidArgument);
  }
  CHECK(QENCMetricInvalidate(metric, -2) == QENCStatusInvalidArgument);
  CHECK(QENCMetricInvalidate(metric, 6) == QENCStatusInvalidArgument);
  OK(QENCMetricAddChild(metric, child));
  CHECK(QENCMetricAddChild(child, metric) == QENCStatusInvalidArgument);  // a cycle
  QENCSpool spool;
  CHECK(QENCSpoolCreate(TEXT("/no-such-folder-of-qen/spool.sqlite"), 0, 0, &spool) ==
        QENCStatusFailed);
  OK(QENCMetricRelease(child));
  OK(QENCMetricRelease(metric));
}

int main(int argc, char** argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: %s <spool path>\n", argv[0]);
    return 2;
  }
  checkCompletionReleasingItsMetric();
  CHECK(QENCMetricHandleCount() == 0);
  QENCMetric request, running;
  const QENCMetric root = measuredTree(&request);
  QENCTrace trace;
  OK(QENCMetricCreateLeaf(TEXT("running"), &running));
  OK(QENCMetricStart(running));
  CHECK(QENCTraceCreate(running, NULL, 0, TEXT("c"), &trace) == QENCStatusNotFinished);
  OK(QENCMetricInvalidateWithTime(running, 0, QENCMonotonicTimeNow()));
  OK(QENCMetricRelease(running));

  OK(QENCTraceCreate(root, TEXT("42"), TEXT("c"), &trace));
  OK(QENCMetricRelease(request));  // the root keeps it in the tree
  OK(QENCMetricRelease(root));
  CHECK(QENCMetricHandleCount() == 0);
  checkExport(trace);
  checkDelivery(trace, argv[1]);
  checkHostTransport(trace);
  checkBadHandles(root, trace);
  checkEndpointAndApplicationEvents();
  checkAppStart();
  checkFrames();
  checkHangMonitor();
  checkRefusedArguments();
  OK(QENCTraceRelease(trace));
  if (failures != 0) {
    fprintf(stderr, "%d checks failed\n", failures);
  }
  return failures == 0 ? 0 : 1;
}
