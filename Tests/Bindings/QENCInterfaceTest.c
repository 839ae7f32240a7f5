/* The C interface driven from C: every function, bad handles and arguments, and a completion
 * callback that releases its own metric. Exits 0 when every check holds. */
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

static int contains(const QENCBuffer* buffer, const char* text) {
  const size_t length = strlen(text);
  for (size_t at = 0; buffer->length >= length && at <= buffer->length - length; ++at) {
    if (memcmp(buffer->data + at, text, length) == 0) {
      return 1;
    }
  }
  return 0;
}

/* A completion that releases the metric it completes, then tells the test. */
struct Completion {
  pthread_mutex_t mutex;
  pthread_cond_t done;
  QENCMetric metric;
  int calls;
  int valid;
  QENCStatus releaseStatus;
};

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

static void checkCompletionReleasingItsMetric(void) {
  struct Completion completion = {PTHREAD_MUTEX_INITIALIZER, PTHREAD_COND_INITIALIZER, {0}, 0, 0,
                                  QENCStatusFailed};
  CHECK(QENCMetricCreate(TEXT("upload"), 1.0, &completion.metric) == QENCStatusOK);
  CHECK(QENCMetricAddCompletion(completion.metric, completeAndRelease, &completion) ==
        QENCStatusOK);
  CHECK(QENCMetricAddCompletion(completion.metric, NULL, NULL) == QENCStatusInvalidArgument);
  CHECK(QENCMetricStart(completion.metric) == QENCStatusOK);
  CHECK(QENCMetricInvalidate(completion.metric, 1) == QENCStatusOK);
  pthread_mutex_lock(&completion.mutex);
  while (completion.calls == 0) {
    pthread_cond_wait(&completion.done, &completion.mutex);
  }
  pthread_mutex_unlock(&completion.mutex);
  CHECK(completion.calls == 1);
  CHECK(!completion.valid);
  CHECK(completion.releaseStatus == QENCStatusOK);
  CHECK(QENCMetricStart(completion.metric) == QENCStatusInvalidHandle);
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

/* A tree measured with explicit times, every kind of tag and annotation, and its headers. */
static QENCMetric measuredTree(QENCMetric* request) {
  QENCMetric root;
  CHECK(QENCMetricCreate(TEXT("home_feed_render"), 1.0, &root) == QENCStatusOK);
  CHECK(QENCMetricCreate(TEXT("feed_request"), 1.0, request) == QENCStatusOK);
  const double now = QENCMonotonicTimeNow();
  CHECK(QENCMetricStartWithTime(root, now - 1.0) == QENCStatusOK);
  CHECK(QENCMetricAddChild(root, *request) == QENCStatusOK);
  CHECK(QENCMetricStartWithTime(*request, now - 0.5) == QENCStatusOK);
  CHECK(QENCMetricAddAnnotation(*request, TEXT("first_byte"), now - 0.25) == QENCStatusOK);
  CHECK(QENCMetricAddStringTag(*request, TEXT("http.path"), TEXT("/feed")) == QENCStatusOK);
  CHECK(QENCMetricAddBoolTag(*request, TEXT("cached"), true) == QENCStatusOK);
  CHECK(QENCMetricAddInt16Tag(*request, TEXT("retries"), -2) == QENCStatusOK);
  CHECK(QENCMetricAddInt32Tag(*request, TEXT("status"), 200) == QENCStatusOK);
  CHECK(QENCMetricAddInt64Tag(*request, TEXT("bytes"), 5000000000) == QENCStatusOK);
  CHECK(QENCMetricAddStringTag(*request, NULL, 3, TEXT("x")) == QENCStatusInvalidArgument);
  CHECK(QENCMetricAddStringTag(*request, TEXT("empty"), NULL, 0) == QENCStatusOK);

  int64_t rootTrace = 0, rootSpan = 0, requestTrace = 0, requestSpan = 0;
  CHECK(QENCMetricIdentifiers(root, &rootTrace, &rootSpan) == QENCStatusOK);
  CHECK(QENCMetricIdentifiers(*request, &requestTrace, &requestSpan) == QENCStatusOK);
  CHECK(QENCMetricIdentifiers(root, NULL, &rootSpan) == QENCStatusInvalidArgument);
  struct Headers headers = {""};
  CHECK(QENCMetricPropagationHeaders(*request, collectHeader, &headers) == QENCStatusOK);
  char expected[64];
  snprintf(expected, sizeof expected, "X-B3-SpanId=%016llx;", (unsigned long long)requestSpan);
  CHECK(strstr(headers.text, expected) != NULL);
  snprintf(expected, sizeof expected, "X-B3-ParentSpanId=%016llx;", (unsigned long long)rootSpan);
  CHECK(strstr(headers.text, expected) != NULL);
  snprintf(expected, sizeof expected, "X-B3-TraceId=%016llx;", (unsigned long long)rootTrace);
  CHECK(strstr(headers.text, expected) != NULL);
  CHECK(QENCMetricPropagationHeaders(*request, NULL, NULL) == QENCStatusInvalidArgument);

  CHECK(QENCMetricStopWithTime(*request, now - 0.1) == QENCStatusOK);
  CHECK(QENCMetricStop(root) == QENCStatusOK);
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
    CHECK(QENCTraceEncode(trace, kFormats[index].format, TEXT("c-app"), &encoded) == QENCStatusOK);
    CHECK(contains(&encoded, kFormats[index].mustContain));
    CHECK(contains(&encoded, "c-app"));
    QENCBufferRelease(&encoded);
    CHECK(encoded.data == NULL);
  }
  QENCBuffer unused = {NULL, 0};
  CHECK(QENCTraceEncode(trace, (QENCFormat)9, TEXT("c-app"), &unused) == QENCStatusInvalidArgument);
  QENCBufferRelease(NULL);
}

static void checkDelivery(QENCTrace trace, const char* spoolPath) {
  QENCSpool spool;
  CHECK(QENCSpoolCreate(spoolPath, strlen(spoolPath), 0, 60, &spool) == QENCStatusOK);
  const QENCHeader header = {TEXT("Authorization"), TEXT("Bearer c")};
  /* Nothing listens on port 9 of loopback: every attempt fails, and the spool keeps the spans. */
  QENCReporterOptions options = {TEXT("http://127.0.0.1:9/api/v2/spans"),
                                 QENCFormatZipkinV2JSON,
                                 TEXT("c-app"),
                                 true,
                                 &header,
                                 1,
                                 spool};
  QENCReporter reporter;
  CHECK(QENCReporterCreate(&options, &reporter) == QENCStatusOK);
  CHECK(QENCSpoolRelease(spool) == QENCStatusOK); /* the reporter keeps it open */
  /* Offline and pending: nothing is tried, and the spool keeps the spans all the same. */
  const QENCDeviceConditions offline = {false, false, false, -1, false};
  CHECK(QENCReporterSetDeviceConditions(reporter, &offline) == QENCStatusOK);
  CHECK(QENCReporterSetDeviceConditions(reporter, NULL) == QENCStatusInvalidArgument);
  CHECK(QENCReporterSetConsent(reporter, QENCConsentPending) == QENCStatusOK);
  CHECK(QENCReporterSetConsent(reporter, (QENCConsent)3) == QENCStatusInvalidArgument);
  CHECK(QENCReporterReport(reporter, trace) == QENCStatusOK);
  bool delivered = true;
  CHECK(QENCReporterShutdown(reporter, 1000, &delivered) == QENCStatusOK && !delivered);
  QENCReporterCounters counters;
  CHECK(QENCReporterGetCounters(reporter, &counters) == QENCStatusOK);
  CHECK(counters.accepted == 2 && counters.persisted == 2 && counters.delivered == 0);
  CHECK(QENCReporterGetCounters(reporter, NULL) == QENCStatusInvalidArgument);
  CHECK(QENCReporterRelease(reporter) == QENCStatusOK);

  options.format = QENCFormatChromeTrace;
  CHECK(QENCReporterCreate(&options, &reporter) == QENCStatusInvalidArgument);
  options.format = QENCFormatZipkinV2JSON;
  CHECK(QENCReporterCreate(&options, &reporter) == QENCStatusInvalidHandle); /* released spool */
  CHECK(QENCReporterCreate(NULL, &reporter) == QENCStatusInvalidArgument);
}

/* A request timed by a network stack, traced under a screen that hears the app go to the
 * background: its span carries the id its headers sent, and a child per phase. */
static void checkEndpointAndApplicationEvents(void) {
  QENCMetric screen, endpoint;
  CHECK(QENCMetricCreate(TEXT("screen"), 1.0, &screen) == QENCStatusOK);
  CHECK(QENCMetricStart(screen) == QENCStatusOK);
  CHECK(QENCMetricObserveApplicationEvents(screen) == QENCStatusOK);
  int64_t sentSpanId = 0;
  struct Headers headers = {""};
  CHECK(QENCPropagationHeadersForRequest(screen, &sentSpanId, collectHeader, &headers) ==
        QENCStatusOK);
  char expected[64];
  snprintf(expected, sizeof expected, "X-B3-SpanId=%016llx;", (unsigned long long)sentSpanId);
  CHECK(strstr(headers.text, expected) != NULL);
  CHECK(QENCPropagationHeadersForRequest(screen, NULL, collectHeader, &headers) ==
        QENCStatusInvalidArgument);

  struct timespec now;
  timespec_get(&now, TIME_UTC);
  const double t = (double)now.tv_sec + now.tv_nsec / 1e9 - 1.0;
  const QENCRequestTiming timing = {t,        t + 0.01, t + 0.02, t + 0.03, t + 0.04,
                                    t + 0.05, t + 0.05, t + 0.06, t + 0.07, t + 0.1,
                                    t + 0.2,  200,      300,      4000,     false};
  CHECK(QENCEndpointMetricCreate(TEXT("https://api.example.com/v3/feed"), TEXT("GET"), &timing,
                                 sentSpanId, &endpoint) == QENCStatusOK);
  CHECK(QENCEndpointMetricCreate(TEXT("https://x"), TEXT("GET"), NULL, 0, &endpoint) ==
        QENCStatusInvalidArgument);
  CHECK(QENCMetricAddChild(screen, endpoint) == QENCStatusOK);
  CHECK(QENCPostApplicationEvent(QENCApplicationDidEnterBackground) == QENCStatusOK);
  CHECK(QENCPostApplicationEvent((QENCApplicationEvent)9) == QENCStatusInvalidArgument);
  CHECK(QENCMetricStop(screen) == QENCStatusOK);

  QENCTrace trace;
  QENCBuffer json = {NULL, 0};
  CHECK(QENCTraceCreate(screen, NULL, 0, TEXT("c"), &trace) == QENCStatusOK);
  CHECK(QENCTraceEncode(trace, QENCFormatZipkinV2JSON, TEXT("c-app"), &json) == QENCStatusOK);
  snprintf(expected, sizeof expected, "\"id\":\"%016llx\"", (unsigned long long)sentSpanId);
  CHECK(contains(&json, expected));
  CHECK(contains(&json, "\"name\":\"resource_/v3/feed\""));
  static const char* const kPhases[] = {"dns", "conn", "tls", "req", "resp"};
  for (size_t index = 0; index < 5; ++index) {
    snprintf(expected, sizeof expected, "\"name\":\"%s\"", kPhases[index]);
    CHECK(contains(&json, expected));
  }
  CHECK(contains(&json, "app.enter.background"));
  QENCBufferRelease(&json);
  CHECK(QENCTraceRelease(trace) == QENCStatusOK);
  CHECK(QENCMetricRelease(endpoint) == QENCStatusOK);
  CHECK(QENCMetricRelease(screen) == QENCStatusOK);
}

/* Zero, released and wrong-kind handles are refused, and nothing happens. */
static void checkBadHandles(QENCMetric released, QENCTrace trace) {
  const QENCMetric zero = {0};
  const QENCMetric traceAsMetric = {trace.id};
  const QENCReporter metricAsReporter = {released.id};
  CHECK(QENCMetricStart(zero) == QENCStatusInvalidHandle);
  CHECK(QENCMetricStop(released) == QENCStatusInvalidHandle);
  CHECK(QENCMetricStartWithTime(traceAsMetric, 1.0) == QENCStatusInvalidHandle);
  CHECK(QENCMetricRelease(released) == QENCStatusInvalidHandle);
  CHECK(QENCMetricAddChild(zero, released) == QENCStatusInvalidHandle);
  CHECK(QENCReporterShutdown(metricAsReporter, 0, NULL) == QENCStatusInvalidHandle);
  CHECK(QENCTraceRelease((QENCTrace){released.id}) == QENCStatusInvalidHandle);
  CHECK(QENCSpoolRelease((QENCSpool){trace.id}) == QENCStatusInvalidHandle);
  CHECK(QENCMetricCreate(NULL, 4, 1.0, &released) == QENCStatusInvalidArgument);
  CHECK(QENCMetricCreate(TEXT("x"), 1.0, NULL) == QENCStatusInvalidArgument);
}

int main(int argc, char** argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: %s <spool path>\n", argv[0]);
    return 2;
  }
  char companion[4096];
  remove(argv[1]); /* a spool left by an earlier run would send its batches first */
  snprintf(companion, sizeof companion, "%s-wal", argv[1]);
  remove(companion);
  snprintf(companion, sizeof companion, "%s-shm", argv[1]);
  remove(companion);
  checkCompletionReleasingItsMetric();
  CHECK(QENCMetricHandleCount() == 0);
  QENCMetric request;
  const QENCMetric root = measuredTree(&request);
  QENCTrace unfinished;
  QENCMetric running;
  CHECK(QENCMetricCreateLeaf(TEXT("running"), &running) == QENCStatusOK);
  CHECK(QENCMetricStart(running) == QENCStatusOK);
  CHECK(QENCTraceCreate(running, NULL, 0, TEXT("c"), &unfinished) == QENCStatusNotFinished);
  CHECK(QENCMetricInvalidateWithTime(running, 0, QENCMonotonicTimeNow()) == QENCStatusOK);
  CHECK(QENCMetricRelease(running) == QENCStatusOK);

  QENCTrace trace;
  CHECK(QENCTraceCreate(root, TEXT("42"), TEXT("c"), &trace) == QENCStatusOK);
  CHECK(QENCMetricRelease(request) == QENCStatusOK); /* the root keeps it in the tree */
  CHECK(QENCMetricRelease(root) == QENCStatusOK);
  CHECK(QENCMetricHandleCount() == 0);
  checkExport(trace);
  checkDelivery(trace, argv[1]);
  checkBadHandles(root, trace);
  checkEndpointAndApplicationEvents();
  CHECK(QENCTraceRelease(trace) == QENCStatusOK);
  if (failures != 0) {
    fprintf(stderr, "%d checks failed\n", failures);
  }
  return failures == 0 ? 0 : 1;
}
