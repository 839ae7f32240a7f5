// What the crash-safe spool costs: spans persisted per second, in batches of 100 encoded as the
// reporter sends them (Zipkin v2 JSON, gzipped), and what report costs the caller's thread with
// and without a spool behind the reporter. The summary gives each row per span in monotonic clock
// reads measured in the same run.
#include <benchmark/benchmark.h>

#include <filesystem>

#include "BinaryAnnotation+QENAdditions.h"
#include "QENAllocationCounter.h"
#include "QENClockReadSummary.h"
#include "QENFoundation/QENMonotonicTime.h"
#include "QENPerformanceMetric.h"
#include "QENSpanReporter.h"

namespace {

constexpr int kBatchSpans = 100;

void countPerSpan(benchmark::State& state, std::int64_t spansPerIteration) {
  const auto spans = state.iterations() * spansPerIteration;
  state.SetItemsProcessed(spans);
  state.counters["time_per_span"] = benchmark::Counter(
      static_cast<double>(spans), benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

// A finished root with children, each with an annotation and a binary annotation.
QENSpanReporter::SpanList exportedSpans(int count) {
  const double now = QENMonotonicTimeGetCurrent();
  const auto root = QENPerformanceMetric::initWithName("home_feed_render", now - 1, now);
  for (int index = 1; index < count; ++index) {
    auto child = QENPerformanceMetric::initLeafMetricWithName("phase", now - 0.5, now - 0.25);
    child->addAnnotation(
        std::make_shared<const QENThrift::Annotation>(index, "first_byte", nullptr));
    child->addBinaryAnnotation(QENThrift::BinaryAnnotationQENAdditions::annotationWithKeyInt32(
        "net.response_status", 200));
    root->addChildMetric(child);
  }
  return root->spansWithAppContext(QENPerformanceMetricAppContext("1234", "iphone"));
}

std::string freshSpoolPath(const char* name) {
  const auto path = std::filesystem::temp_directory_path() / name;
  for (const char* suffix : {"", "-wal", "-shm"}) {
    std::filesystem::remove(path.string() + suffix);
  }
  return path.string();
}

void BM_SpoolPersistBatchOf100(benchmark::State& state) {
  QENSpanReporterOptions options;
  options.collectorURL = "http://127.0.0.1:9/";
  const auto batch = options.encoding.encodeBatch(exportedSpans(kBatchSpans));
  QENSpanSpool spool({.path = freshSpoolPath("qen-spool-benchmark.sqlite")});
  for (auto _ : state) {
    benchmark::DoNotOptimize(spool.append(batch));
  }
  countPerSpan(state, kBatchSpans);
  state.counters["batch_bytes"] = static_cast<double>(batch.body.size());
}
BENCHMARK(BM_SpoolPersistBatchOf100);

// report's cost to its caller, ten spans a call, with the reporter's thread at work behind it
// (persisting, or failing to reach a collector that is not there).
void BM_ReportOnTheCallersThread(benchmark::State& state) {
  const bool spooled = state.range(0) != 0;
  QENSpanReporterOptions options;
  options.collectorURL = "http://127.0.0.1:9/";  // the discard port: nobody listens
  options.maximumRetries = 0;
  options.destructionShutdownLimit = std::chrono::milliseconds(0);
  if (spooled) {
    options.spool = std::make_shared<QENSpanSpool>(
        QENSpanSpoolOptions{.path = freshSpoolPath("qen-report-benchmark.sqlite")});
  }
  QENSpanReporter reporter(options);
  const auto spans = exportedSpans(10);
  for (auto _ : state) {
    reporter.report(spans);
  }
  countPerSpan(state, static_cast<std::int64_t>(spans.size()));
  state.SetLabel(spooled ? "with a spool" : "without a spool");
}
BENCHMARK(BM_ReportOnTheCallersThread)->Arg(0)->Arg(1);

}  // namespace

int main(int argc, char** argv) {
  return QENRunBenchmarksWithClockReadSummary(argc, argv);
}
