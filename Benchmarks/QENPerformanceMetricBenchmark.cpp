// The cost of a metric's life, beside the costs it is made of, measured in one run so that the
// ratios hold whatever else the machine is doing. Prints, after the table, a leaf metric's
// create + start + stop + destroy in monotonic clock reads (start and stop read the clock twice
// each by definition).
#include <benchmark/benchmark.h>
#include <sys/random.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "QENFoundation/QENLock.h"
#include "QENFoundation/QENMonotonicTime.h"
#include "QENFoundation/QENRandom.h"
#include "QENPerformanceMetric.h"

namespace {

void BM_LeafMetricLifecycle(benchmark::State& state) {
  for (auto _ : state) {
    auto metric = QENPerformanceMetric::initLeafMetricWithName("leaf");
    metric->startMetric();
    metric->stopMetric();
    benchmark::DoNotOptimize(metric.get());
  }
}
BENCHMARK(BM_LeafMetricLifecycle);

void BM_ObservingMetricLifecycle(benchmark::State& state) {
  for (auto _ : state) {
    auto metric = QENPerformanceMetric::initWithName("home_feed_render");
    metric->startMetric();
    metric->stopMetric();
    benchmark::DoNotOptimize(metric.get());
  }
}
BENCHMARK(BM_ObservingMetricLifecycle);

// One annotation and one binary annotation added to a running metric, as export-bound code
// does for every measured phase.
void BM_AddAnnotationPairToRunningMetric(benchmark::State& state) {
  auto metric = QENPerformanceMetric::initLeafMetricWithName("leaf");
  metric->startMetric();
  const auto endpoint = std::make_shared<const QENThrift::Endpoint>(0, 0, "ios", std::nullopt);
  std::int64_t timestamp = 0;
  for (auto _ : state) {
    metric->addAnnotation(
        std::make_shared<const QENThrift::Annotation>(++timestamp, "first_byte", endpoint));
    metric->addBinaryAnnotation(std::make_shared<const QENThrift::BinaryAnnotation>(
        "net.response_status",
        QENThrift::BinaryAnnotation::Bytes{std::byte{0}, std::byte{0}, std::byte{0},
                                           std::byte{200}},
        QENThrift::AnnotationType::I32, nullptr));
    if (timestamp % 4096 == 0) {  // keep the lists from growing without bound
      state.PauseTiming();
      metric = QENPerformanceMetric::initLeafMetricWithName("leaf");
      metric->startMetric();
      state.ResumeTiming();
    }
  }
}
BENCHMARK(BM_AddAnnotationPairToRunningMetric);

void BM_MonotonicClockRead(benchmark::State& state) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(QENMonotonicTimeGetCurrent());
  }
}
BENCHMARK(BM_MonotonicClockRead);

void BM_UncontendedQENLockPair(benchmark::State& state) {
  QENLock lock("benchmark.lock");
  for (auto _ : state) {
    lock.lock();
    benchmark::ClobberMemory();
    lock.unlock();
  }
}
BENCHMARK(BM_UncontendedQENLockPair);

void BM_UncontendedStdMutexPair(benchmark::State& state) {
  std::mutex mutex;
  for (auto _ : state) {
    mutex.lock();
    benchmark::ClobberMemory();
    mutex.unlock();
  }
}
BENCHMARK(BM_UncontendedStdMutexPair);

void BM_MakeShared256Bytes(benchmark::State& state) {
  struct Payload {
    char bytes[256];
  };
  for (auto _ : state) {
    auto payload = std::make_shared<Payload>();
    benchmark::DoNotOptimize(payload.get());
  }
}
BENCHMARK(BM_MakeShared256Bytes);

void BM_Random16BytesPlatform(benchmark::State& state) {
  unsigned char bytes[16];
  for (auto _ : state) {
    QENFoundation::arc4random_buf(bytes, sizeof bytes);
    benchmark::DoNotOptimize(bytes);
  }
}
BENCHMARK(BM_Random16BytesPlatform);

void BM_Random16BytesGlibcArc4random(benchmark::State& state) {
  unsigned char bytes[16];
  for (auto _ : state) {
    ::arc4random_buf(bytes, sizeof bytes);
    benchmark::DoNotOptimize(bytes);
  }
}
BENCHMARK(BM_Random16BytesGlibcArc4random);

void BM_Random16BytesKernelGetrandom(benchmark::State& state) {
  unsigned char bytes[16];
  for (auto _ : state) {
    benchmark::DoNotOptimize(::getrandom(bytes, sizeof bytes, 0));
  }
}
BENCHMARK(BM_Random16BytesKernelGetrandom);

// Keeps each benchmark's time per iteration for the summary: the median when the run is
// repeated (--benchmark_repetitions), else the single measurement.
class SummarisingReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.run_type == Run::RT_Iteration && run.repetitions <= 1) {
        nanosecondsPerIteration[run.run_name.function_name] = run.GetAdjustedRealTime();
      } else if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "median") {
        nanosecondsPerIteration[run.run_name.function_name] = run.GetAdjustedRealTime();
      }
    }
  }
  std::map<std::string, double> nanosecondsPerIteration;
};

}  // namespace

int main(int argc, char** argv) {
  // A host app always runs many threads. Once a second thread has existed, the C and C++
  // runtimes stop taking their single-threaded shortcuts (plain reference counts, lock-free
  // mutexes), so the figures are those of a real process.
  std::thread([] {}).join();
  benchmark::Initialize(&argc, argv);
  SummarisingReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  const auto& times = reporter.nanosecondsPerIteration;
  const auto leaf = times.find("BM_LeafMetricLifecycle");
  const auto clock = times.find("BM_MonotonicClockRead");
  if (leaf != times.end() && clock != times.end() && clock->second > 0) {
    std::printf(
        "\nLeaf metric create+start+stop+destroy = %.2f monotonic clock reads "
        "(target: at most 6)\n",
        leaf->second / clock->second);
  }
  benchmark::Shutdown();
  return EXIT_SUCCESS;
}
