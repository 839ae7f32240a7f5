// The cost of exporting finished metric trees of growing size, per span, so that a non-linear
// step shows as a growing figure; of encoding 10,000 exported spans in each wire format; and of
// the reading step the encoders share, with scrubbing off and on.
// Each row also says the bytes it allocates per span, and the summary gives every row's time per
// span in monotonic clock reads measured in the same run, a figure that travels between machines.
#include <benchmark/benchmark.h>

#ifdef __GLIBC__
#include <malloc.h>
#endif

#include <limits>

#include "BinaryAnnotation+QENAdditions.h"
#include "QENAllocationCounter.h"
#include "QENChromeTraceEncoder.h"
#include "QENClockReadSummary.h"
#include "QENFoundation/QENMonotonicTime.h"
#include "QENOTLPJSONEncoder.h"
#include "QENPerformanceMetric.h"
#include "QENReachability/QENNetworkingReachabilityManager.h"
#include "QENSpanReading.h"
#include "QENZipkinThriftEncoder.h"
#include "QENZipkinV2JSONEncoder.h"

namespace {

// Sets the per-span figures of a row that handled `spans` spans per iteration.
void reportPerSpan(benchmark::State& state, std::int64_t spans, std::size_t bytesBefore) {
  const auto handled = static_cast<double>(state.iterations() * spans);
  state.SetItemsProcessed(state.iterations() * spans);
  state.counters["bytes_per_span"] =
      static_cast<double>(QENAllocatedBytes() - bytesBefore) / handled;
  state.counters["time_per_span"] =
      benchmark::Counter(handled, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

// A uwt root with `metricCount - 1` finished descendants, ten per parent, each with one
// annotation and one binary annotation, as a feed render with its requests would have.
std::shared_ptr<QENPerformanceMetric> makeFinishedTree(int metricCount) {
  const double now = QENMonotonicTimeGetCurrent();
  auto root = QENPerformanceMetric::initWithName("home_feed_render", now - 1, now);
  root->setMetricCause(1);
  std::vector<std::shared_ptr<QENPerformanceMetric>> metrics = {root};
  for (int index = 1; index < metricCount; ++index) {
    auto metric = QENPerformanceMetric::initLeafMetricWithName("phase", now - 0.5, now - 0.25);
    metric->addAnnotation(
        std::make_shared<const QENThrift::Annotation>(index, "first_byte", nullptr));
    metric->addBinaryAnnotation(QENThrift::BinaryAnnotationQENAdditions::annotationWithKeyInt32(
        "net.response_status", 200));
    metrics[static_cast<std::size_t>((index - 1) / 10)]->addChildMetric(metric);
    metrics.push_back(std::move(metric));
  }
  return root;
}

void BM_ExportFinishedTree(benchmark::State& state) {
  QENPerformanceMetric::setUwtMetricNames(QENPerformanceMetric::MetricNameSet{"home_feed_render"});
  QENNetworkingReachabilityManager::prohibitedManager().setStatus(
      QENNetworkingReachabilityStatusWiFi);
  const auto metricCount = static_cast<int>(state.range(0));
  const auto root = makeFinishedTree(metricCount);
  const QENPerformanceMetricAppContext appContext("1234", "iphone");
  const std::size_t bytesBefore = QENAllocatedBytes();
  for (auto _ : state) {
    auto spans = root->spansWithAppContext(appContext);
    benchmark::DoNotOptimize(spans.data());
  }
  reportPerSpan(state, metricCount, bytesBefore);
}
BENCHMARK(BM_ExportFinishedTree)->Arg(10)->Arg(100)->Arg(1000)->Arg(10000);

const QENPerformanceMetric::SpanList& tenThousandSpans() {
  static const auto* const spans = [] {
    const auto root = makeFinishedTree(10000);
    return new QENPerformanceMetric::SpanList(
        root->spansWithAppContext(QENPerformanceMetricAppContext("1234", "iphone")));
  }();
  return *spans;
}

template <class Encode>
void encodeTenThousandSpans(benchmark::State& state, const Encode& encode) {
  const auto& spans = tenThousandSpans();
  const std::size_t bytesBefore = QENAllocatedBytes();
  for (auto _ : state) {
    auto encoded = encode(spans);
    benchmark::DoNotOptimize(encoded.data());
  }
  reportPerSpan(state, static_cast<std::int64_t>(spans.size()), bytesBefore);
}

void BM_EncodeZipkinV1Thrift(benchmark::State& state) {
  encodeTenThousandSpans(
      state, [](const auto& spans) { return QENZipkinThriftEncoder::encodeSpans(spans); });
}
BENCHMARK(BM_EncodeZipkinV1Thrift)->Unit(benchmark::kMillisecond);

void BM_EncodeZipkinV2JSON(benchmark::State& state) {
  encodeTenThousandSpans(
      state, [](const auto& spans) { return QENZipkinV2JSONEncoder::encodeSpans(spans); });
}
BENCHMARK(BM_EncodeZipkinV2JSON)->Unit(benchmark::kMillisecond);

void BM_EncodeChromeTrace(benchmark::State& state) {
  encodeTenThousandSpans(
      state, [](const auto& spans) { return QENChromeTraceEncoder::encodeSpans(spans); });
}
BENCHMARK(BM_EncodeChromeTrace)->Unit(benchmark::kMillisecond);

void BM_EncodeZipkinV1ThriftBackendSafe(benchmark::State& state) {
  encodeTenThousandSpans(state, [](const auto& spans) {
    return QENZipkinThriftEncoder::encodeSpans(spans, QENZipkinThriftEncoder::Form::kBackendSafe);
  });
}
BENCHMARK(BM_EncodeZipkinV1ThriftBackendSafe)->Unit(benchmark::kMillisecond);

void BM_EncodeOTLPJSON(benchmark::State& state) {
  encodeTenThousandSpans(state,
                         [](const auto& spans) { return QENOTLPJSONEncoder::encodeSpans(spans); });
}
BENCHMARK(BM_EncodeOTLPJSON)->Unit(benchmark::kMillisecond);

// The shared reading step every encoder runs, per span, with and without scrubbing: 1,000 of the
// spans above, each also carrying a request's URL twice (as a request span and an image metric
// do), with user information and a query.
const QENPerformanceMetric::SpanList& requestSpans() {
  static const auto* const spans = [] {
    const auto url = QENThrift::BinaryAnnotationQENAdditions::annotationWithKeyString(
        "endpoint_id", "https://user:pw@api.example.com/v1/feed?cursor=c2Vj&limit=20");
    const auto image = QENThrift::BinaryAnnotationQENAdditions::annotationWithKeyString(
        "Url", "https://cdn.example.com/p/1.jpg?sig=9f8e7d&w=640");
    auto* made = new QENPerformanceMetric::SpanList;
    for (std::size_t index = 0; index < 1000; ++index) {
      auto span = std::make_shared<QENThrift::Span>(*tenThousandSpans()[index]);
      auto tags = span->binary_annotations();
      tags.push_back(url);
      tags.push_back(image);
      span->setBinary_annotations(std::move(tags));
      made->push_back(std::move(span));
    }
    return made;
  }();
  return *spans;
}

enum class Scrubbing { kOff, kURLs, kURLsAndAFilter };

void BM_ReadRequestSpans(benchmark::State& state) {
  QENSpanReadingOptions options;
  const auto scrubbing = static_cast<Scrubbing>(state.range(0));
  options.scrubbing.scrubURLs = scrubbing != Scrubbing::kOff;
  if (scrubbing == Scrubbing::kURLsAndAFilter) {
    options.scrubbing.tagFilter = [](std::string_view key, std::string&) {
      return key != "user.id";
    };
  }
  const auto& spans = requestSpans();
  QENSpanReading reading(options);
  const std::size_t bytesBefore = QENAllocatedBytes();
  for (auto _ : state) {
    reading.readEach(
        spans, [](const QENSpanReading& read) { benchmark::DoNotOptimize(read.tags().data()); });
  }
  reportPerSpan(state, static_cast<std::int64_t>(spans.size()), bytesBefore);
}
BENCHMARK(BM_ReadRequestSpans)->ArgName("scrubbing")->Arg(0)->Arg(1)->Arg(2);

// One span carrying range(0) tags of the host's, each of its own key, all of them encoded (the tag
// cap raised to their number) in Zipkin v2 JSON: per_tag must stay flat from 100 to 10,000 tags.
// The 10,000-tag row's memory outgrows the core's own caches and meets the other tenants of the
// shared one, so a single run of it varies by several percent: each row is the median of five.
void BM_EncodeSpanWithManyTags(benchmark::State& state) {
  auto span = std::make_shared<QENThrift::Span>(*tenThousandSpans()[0]);
  QENThrift::Span::BinaryAnnotationList tags;
  for (std::int64_t index = 0; index < state.range(0); ++index) {
    tags.push_back(QENThrift::BinaryAnnotationQENAdditions::annotationWithKeyString(
        std::string("host.tag_").append(std::to_string(index)), "value"));
  }
  span->setBinary_annotations(std::move(tags));
  const std::shared_ptr<QENThrift::Span> spans[] = {span};
  QENSpanReadingOptions everyTag;
  everyTag.maximumTagsPerSpan = static_cast<std::size_t>(state.range(0));
  for (auto _ : state) {
    benchmark::DoNotOptimize(QENZipkinV2JSONEncoder::encodeSpans(spans, everyTag).size());
  }
  state.counters["per_tag"] = benchmark::Counter(
      static_cast<double>(state.range(0)),
      benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_EncodeSpanWithManyTags)
    ->Arg(100)
    ->Arg(1000)
    ->Arg(10000)
    ->Repetitions(5)
    ->ReportAggregatesOnly(true);

#ifdef __GLIBC__
// The same export with glibc's heap trimming off. By default glibc gives the top of its heap back
// to the kernel once more than 128 KiB of it is free, so a row whose spans take megabytes frees
// them and faults them in again every iteration (a page fault per 4 KiB), while a small row never
// does. How soon freed memory goes back to the kernel is the allocator's policy, not the
// library's work; beside the row above, this one tells the two apart. Registered last:
// setting the threshold also ends glibc's adjusting of it for the rest of the process.
void BM_ExportFinishedTreeHeapKept(benchmark::State& state) {
  constexpr int kGlibcDefaultTrimThreshold = 128 * 1024;
  ::mallopt(M_TRIM_THRESHOLD, std::numeric_limits<int>::max());
  BM_ExportFinishedTree(state);
  ::mallopt(M_TRIM_THRESHOLD, kGlibcDefaultTrimThreshold);
}
BENCHMARK(BM_ExportFinishedTreeHeapKept)->Arg(10)->Arg(10000);
#endif

}  // namespace

int main(int argc, char** argv) {
  return QENRunBenchmarksWithClockReadSummary(argc, argv);
}
