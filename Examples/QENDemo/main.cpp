// The demo measurement: a cold start of a feed app played through the library, exported as
// spans, drawn as a text waterfall and written in the four wire formats.
//
//   QENDemo [--output FOLDER] [--send URL [--format zipkin-v2|zipkin-v1-thrift|otlp]]
//
// FOLDER defaults to qen-demo-output. With --send, the spans are also sent through the reporter
// to a running collector: Zipkin v2 JSON by default (http://localhost:9411/api/v2/spans for
// Zipkin, Jaeger or Tempo), Zipkin v1 Thrift (http://localhost:9411/api/v1/spans) or OTLP JSON
// (http://localhost:4318/v1/traces).
//
// Apart from ids and times, its output is the same on every run.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "QENAnimationMetric.h"
#include "QENChromeTraceEncoder.h"
#include "QENEndpointPerformanceMetric.h"
#include "QENFoundation/QENMonotonicTime.h"
#include "QENFoundation/QENNetworkEndianHexString.h"
#include "QENImageDownloadPerformanceMetricManager.h"
#include "QENMeasuredTask.h"
#include "QENOTLPJSONEncoder.h"
#include "QENPerformanceLoggerVersion.h"
#include "QENPerformanceSignal.h"
#include "QENReachability/QENNetworkingReachabilityManager.h"
#include "QENSpanReporter.h"
#include "QENTracePropagationHeaders.h"
#include "QENURLLoading/QENHTTPURLResponse.h"
#include "QENZipkinThriftEncoder.h"
#include "QENZipkinV2JSONEncoder.h"

namespace {

using Metric = QENPerformanceMetric;

// A wall-clock date `seconds` after the monotonic instant `base`.
QENDate dateAt(double base, double seconds) {
  return QENDate::dateWithMonotonicTime(base + seconds);
}

// Work of a start-up task: a few milliseconds of the main thread's time.
QENMeasuredTask::Task workFor(int milliseconds) {
  return [milliseconds] { std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds)); };
}

// One request's transaction: lookup, connect with TLS, request, then a response of `bytes`.
std::shared_ptr<QENURLSessionTaskTransactionMetrics> transaction(const std::string& url,
                                                                 double base, std::int64_t bytes) {
  auto record = std::make_shared<QENURLSessionTaskTransactionMetrics>();
  record->request = std::make_shared<QENURLRequest>(QENURL::URLWithString(url), "GET");
  record->response = std::make_shared<QENHTTPURLResponse>(
      200, QENHTTPURLResponse::HeaderFields{{"x-cdn", "edge-fra"}, {"x-morvane-cache", "HIT"}});
  record->resourceFetchType = QENURLSessionTaskMetricsResourceFetchTypeNetworkLoad;
  record->fetchStartDate = dateAt(base, 0.000);
  record->domainLookupStartDate = dateAt(base, 0.001);
  record->domainLookupEndDate = dateAt(base, 0.021);
  record->connectStartDate = dateAt(base, 0.021);
  record->secureConnectionStartDate = dateAt(base, 0.041);
  record->secureConnectionEndDate = dateAt(base, 0.081);
  record->connectEndDate = dateAt(base, 0.081);
  record->requestStartDate = dateAt(base, 0.082);
  record->requestEndDate = dateAt(base, 0.083);
  record->responseStartDate = dateAt(base, 0.153);
  record->responseEndDate = dateAt(base, 0.233);
  record->countOfResponseHeaderBytesReceived = 620;
  record->countOfResponseBodyBytesReceived = bytes;
  record->localAddress = "192.168.1.23";
  return record;
}

std::shared_ptr<QENURLSessionTaskMetrics> taskMetrics(
    const std::shared_ptr<QENURLSessionTaskTransactionMetrics>& record) {
  auto metrics = std::make_shared<QENURLSessionTaskMetrics>();
  metrics->transactionMetrics = {record};
  metrics->taskInterval = {*record->fetchStartDate, *record->responseEndDate};
  return metrics;
}

void loadImage(const std::shared_ptr<Metric>& feed, const std::string& url, double base) {
  const auto image = QENImageDownloadPerformanceMetric::initWithName(
      "image_load", 1.0, QENURL::URLWithString(url), false);
  feed->addChildMetric(image);
  image->startMetricWithTime(base);
  image->imageNodeWillLoadImageFromCacheWithStartTime(base);
  image->imageNodeDidFailToLoadImageFromCacheWithEndTime(base + 0.004);
  image->imageNodeWillLoadImageFromNetworkWithStartTime(base + 0.004);
  image->imageNodeDidStartFetchingDataWithStartTime(base + 0.004);
  const auto record = transaction(url, base + 0.005, 48000);
  image->imageNodeDidLoadImage({}, image->imageURL(), 1, {{"x-cdn", "edge-fra"}}, 200,
                               base + 0.240);
  QENImageDownloadPerformanceMetricManager::processMetrics(taskMetrics(record), image->imageURL());
  image->imageNodeWillStartDisplayAsynchronously(base + 0.241);
  image->imageNodeDidFinishDecodingWithEndTime(base + 0.252);
  image->stopMetricWithTime(base + 0.253);
}

// The app's start-up work, each task measured under the cold-start metric.
std::shared_ptr<Metric> playStartupTasks() {
  const auto coldStart = Metric::initWithName("app_cold_start", 1.0);
  coldStart->setMetricCause(1);
  coldStart->startMetric();
  for (const auto& [name, milliseconds] : {std::pair{&QENMeasuredTaskAppStartupCrashReporter, 6},
                                           std::pair{&QENMeasuredTaskAppStartupSharedClient, 9},
                                           std::pair{&QENMeasuredTaskAppStartupImageManager, 4}}) {
    QENMeasuredTask::initWithName(*name, 1.0, coldStart, workFor(milliseconds))->execute();
  }
  coldStart->stopMetric();
  return coldStart;
}

// The first feed the user waits for, returned finished.
std::shared_ptr<Metric> playHomeFeedRender() {
  const auto feed = Metric::initWithName("home_feed_render", 1.0);
  feed->setMetricCause(1);
  feed->startMetric();
  // The feed request, delivered by the URL-loading system once it finished.
  const double requestStart = QENMonotonicTimeGetCurrent();
  const auto feedRecord =
      transaction("https://api.qen.example/v3/feeds/home/?page_size=25", requestStart, 182000);
  feed->addChildMetric(QENEndpointPerformanceMetric::initWithRequest(
      feedRecord->request, std::nullopt, taskMetrics(feedRecord)));
  loadImage(feed, "https://i.qenimg.com/236x/0a/1b/2c.jpg", requestStart + 0.240);
  loadImage(feed, "https://i.qenimg.com/236x/3d/4e/5f.jpg", requestStart + 0.245);
  const auto animation = QENAnimationMetric::initLeafMetricWithName("feed_first_scroll");
  animation->startMetricWithTime(requestStart + 0.30);
  animation->setSmallDropEvents(2);
  animation->setLargeDropEvents(0);
  animation->setTotalFramesDropped(3);
  animation->setTotalFramesRendered(118);
  animation->stopMetricWithTime(requestStart + 0.50);
  feed->addChildMetric(animation);
  feed->stopMetricWithTime(std::max(QENMonotonicTimeGetCurrent(), requestStart + 0.5));
  return feed;
}

struct WaterfallScale {
  std::int64_t traceStart = INT64_MAX;
  double barsPerMicrosecond = 0;
};

void printWaterfallRow(const QENThrift::Span& span, int depth, const WaterfallScale& scale) {
  constexpr int kBarWidth = 48;
  const int from =
      static_cast<int>((span.timestamp() - scale.traceStart) * scale.barsPerMicrosecond);
  const int length =
      std::max(1, static_cast<int>(std::lround(span.duration() * scale.barsPerMicrosecond)));
  std::string bar(kBarWidth, ' ');
  std::fill_n(bar.begin() + std::min(from, kBarWidth - 1), std::min(length, kBarWidth - from), '#');
  const std::string label = std::string(2 * depth, ' ') + span.name();
  std::printf("%-40.40s |%s| %8.1f ms\n", label.c_str(), bar.c_str(), span.duration() / 1000.0);
}

// Each span under its parent, siblings in the order they started (export lists the last child
// first).
void printWaterfall(const Metric::SpanList& spans) {
  WaterfallScale scale;
  std::int64_t traceEnd = INT64_MIN;
  std::map<std::int64_t, std::vector<const QENThrift::Span*>> childrenByParent;
  for (const auto& span : spans) {
    scale.traceStart = std::min(scale.traceStart, span->timestamp());
    traceEnd = std::max(traceEnd, span->timestamp() + span->duration());
    if (span->parent_idIsSet()) {
      childrenByParent[span->parent_id()].push_back(span.get());
    }
  }
  scale.barsPerMicrosecond =
      48.0 / static_cast<double>(std::max<std::int64_t>(1, traceEnd - scale.traceStart));
  std::vector<std::pair<const QENThrift::Span*, int>> pending;  // span and depth, last on top
  for (const auto& span : spans) {
    if (!span->parent_idIsSet()) {
      pending.emplace_back(span.get(), 0);
    }
  }
  while (!pending.empty()) {
    const auto [span, depth] = pending.back();
    pending.pop_back();
    printWaterfallRow(*span, depth, scale);
    auto children = childrenByParent[span->id()];
    std::stable_sort(children.begin(), children.end(), [](const auto* left, const auto* right) {
      return left->timestamp() > right->timestamp();  // the earliest ends on top of the stack
    });
    for (const auto* child : children) {
      pending.emplace_back(child, depth + 1);
    }
  }
}

// The reporter's wire format named on the command line, or nullopt for a name it does not know.
std::optional<QENSpanEncodingFormat> formatNamed(const std::string& name) {
  static const std::map<std::string, QENSpanEncodingFormat> formats{
      {"zipkin-v2", QENSpanEncodingFormat::kZipkinV2JSON},
      {"zipkin-v1-thrift", QENSpanEncodingFormat::kZipkinV1Thrift},
      {"otlp", QENSpanEncodingFormat::kOTLPJSON}};
  const auto found = formats.find(name);
  return found == formats.end() ? std::nullopt : std::optional(found->second);
}

// Sends the spans to the collector through a reporter; true when all of them were delivered.
bool send(const Metric::SpanList& spans, const QENSpanReporterOptions& options) {
  QENSpanReporter reporter(options);
  reporter.report(spans);
  const bool delivered = reporter.shutdown(std::chrono::seconds(10));
  const QENSpanReporterCounters counters = reporter.counters();
  std::printf("\nsent to %s: %llu of %llu spans (%llu retried, %llu dropped)\n",
              options.collectorURL.c_str(), static_cast<unsigned long long>(counters.delivered),
              static_cast<unsigned long long>(counters.accepted),
              static_cast<unsigned long long>(counters.retried),
              static_cast<unsigned long long>(counters.dropped()));
  return delivered;
}

void write(const std::filesystem::path& file, const std::string& bytes) {
  std::ofstream(file, std::ios::binary) << bytes;
  std::printf("  %s (%zu bytes)\n", file.c_str(), bytes.size());
}

}  // namespace

int main(int argc, char** argv) {
  std::filesystem::path output = "qen-demo-output";
  QENSpanReporterOptions sending;
  for (int index = 1; index < argc; ++index) {
    const std::string argument = argv[index];
    const bool hasValue = index + 1 < argc;
    const auto format =
        argument == "--format" && hasValue ? formatNamed(argv[index + 1]) : std::nullopt;
    if (argument == "--output" && hasValue) {
      output = argv[++index];
    } else if (argument == "--send" && hasValue) {
      sending.collectorURL = argv[++index];
    } else if (format) {
      sending.encoding.format = *format;
      ++index;
    } else {
      std::fprintf(stderr,
                   "usage: %s [--output FOLDER] "
                   "[--send URL [--format zipkin-v2|zipkin-v1-thrift|otlp]]\n",
                   argv[0]);
      return 2;
    }
  }
  std::printf("QENPerformanceLogger %s: a cold start of the home feed\n\n",
              QENPerformanceLoggerVersionString);
  Metric::setUwtMetricNames(Metric::MetricNameSet{"app_cold_start", "home_feed_render"});
  QENNetworkingReachabilityManager::prohibitedManager().setStatus(
      QENNetworkingReachabilityStatusWiFi);

  const QENPerformanceMetricAppContext appContext("1234", "linux-demo");
  Metric::SpanList spans;
  const auto coldStart = playStartupTasks();
  const auto feed = playHomeFeedRender();
  for (const auto& metric : {coldStart, feed}) {
    const auto trace = metric->spansWithAppContext(appContext);
    std::printf("%s: %zu spans in trace %s, sampled for upload: %s\n", metric->name()->c_str(),
                trace.size(), QENFoundation::qen_networkEndianHexString(metric->traceId()).c_str(),
                metric->shouldUpload() ? "yes" : "no");
    printWaterfall(trace);
    std::printf("\n");
    spans.insert(spans.end(), trace.begin(), trace.end());
  }

  // The app's own hosts, listed once at start-up: only they are sent trace ids.
  QENTracePropagationHeaders::setPolicy(QENTracePropagationPolicy({"qen.example", "qenimg.com"}));
  const auto preload = QENPerformanceSignal::initWithVideoUrl(
      QENURL::URLWithString("https://v.qenimg.com/videos/hls/ab/cd.m3u8"), feed->traceId(), false,
      true);
  preload->setIsReadyToPlay(true);
  std::printf("video preload headers:\n");
  for (const auto& [name, value] :
       QENTracePropagationHeaders::headersForVideoPreload(*preload, feed->shouldUpload())) {
    std::printf("  %s: %s\n", name.c_str(), value.c_str());
  }

  std::filesystem::create_directories(output);
  std::printf("\nwritten:\n");
  // Spans name the app they came from: without a service name they would carry the platform's
  // ("linux" here), shared by every app on it.
  const QENSpanReadingOptions service{.serviceName = "qen-demo-app"};
  write(output / "spans-zipkin-v2.json", QENZipkinV2JSONEncoder::encodeSpans(spans, service));
  // As a v1 backend reads it right: no saturated client-send or -receive time.
  const auto thrift = QENZipkinThriftEncoder::encodeSpans(
      spans, QENZipkinThriftEncoder::Form::kBackendSafe, service);
  write(output / "spans-zipkin-v1.thrift", std::string(thrift.begin(), thrift.end()));
  write(output / "spans-chrome-trace.json", QENChromeTraceEncoder::encodeSpans(spans, service));
  write(output / "spans-otlp.json", QENOTLPJSONEncoder::encodeSpans(spans, service));

  sending.encoding.reading = service;
  return sending.collectorURL.empty() || send(spans, sending) ? 0 : 1;
}
