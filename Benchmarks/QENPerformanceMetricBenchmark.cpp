// The cost of a metric's life, beside the costs it is made of, measured in one run so that the
// ratios hold whatever else the machine is doing. Prints, after the table, every row in monotonic
// clock reads (a leaf metric's start and stop read the clock twice each by definition); rows that
// allocate say how many bytes per iteration.
#include <benchmark/benchmark.h>
#include <sys/random.h>

#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "QENAllocationCounter.h"
#include "QENClockReadSummary.h"
#include "QENFoundation/QENLock.h"
#include "QENFoundation/QENMonotonicTime.h"
#include "QENFoundation/QENRandom.h"
#include "QENFrameMonitor.h"
#include "QENHangMonitor.h"
#include "QENPerformanceMetric.h"
#include "QENPerformanceMetricFactories.h"

namespace {

// Bytes allocated per iteration since `bytesBefore`, as a column of the row.
void reportBytesPerIteration(benchmark::State& state, std::size_t bytesBefore) {
  state.counters["bytes"] = static_cast<double>(QENAllocatedBytes() - bytesBefore) /
                            static_cast<double>(state.iterations());
}

void BM_LeafMetricLifecycle(benchmark::State& state) {
  const std::size_t bytesBefore = QENAllocatedBytes();
  for (auto _ : state) {
    auto metric = QENPerformanceMetric::initLeafMetricWithName("leaf");
    metric->startMetric();
    metric->stopMetric();
    benchmark::DoNotOptimize(metric.get());
  }
  reportBytesPerIteration(state, bytesBefore);
}
BENCHMARK(BM_LeafMetricLifecycle);

// A metric that annotates the application's lifecycle, with one annotation and one binary
// annotation: create, observe, start, annotate, stop, destroy.
void BM_AppLifecycleObservingMetricWithAnnotations(benchmark::State& state) {
  const auto annotation = std::make_shared<const QENThrift::Annotation>(1, "first_byte", nullptr);
  const auto binaryAnnotation = std::make_shared<const QENThrift::BinaryAnnotation>(
      "net.response_status", QENThrift::BinaryAnnotation::Bytes{std::byte{200}},
      QENThrift::AnnotationType::BOOL, nullptr);
  const std::size_t bytesBefore = QENAllocatedBytes();
  for (auto _ : state) {
    auto metric = QENPerformanceMetric::initLeafMetricWithName("screen_load");
    metric->configureAppLifecycleNotificationObservation();
    metric->startMetric();
    metric->addAnnotation(annotation);
    metric->addBinaryAnnotation(binaryAnnotation);
    metric->stopMetric();
    benchmark::DoNotOptimize(metric.get());
  }
  reportBytesPerIteration(state, bytesBefore);
}
BENCHMARK(BM_AppLifecycleObservingMetricWithAnnotations);

// Trees whose cost must not grow with the square of their size: each row builds a tree of
// range(0) metrics and frees it, and says its time per metric (as time_per_span, the figure the
// clock-read summary reads).
void countPerMetric(benchmark::State& state) {
  const auto metrics = static_cast<double>(state.iterations() * state.range(0));
  state.counters["time_per_span"] =
      benchmark::Counter(metrics, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

// A chain built bottom up: each new root adopts the whole chain so far.
void BM_ChainAdoptedBottomUpThenFreed(benchmark::State& state) {
  for (auto _ : state) {
    auto root = QENPerformanceMetric::initLeafMetricWithName("link");
    for (std::int64_t made = 1; made < state.range(0); ++made) {
      auto parent = QENPerformanceMetric::initLeafMetricWithName("link");
      parent->addChildMetric(std::move(root));
      root = std::move(parent);
    }
    benchmark::DoNotOptimize(root.get());
  }
  countPerMetric(state);
}
BENCHMARK(BM_ChainAdoptedBottomUpThenFreed)
    ->Arg(1000)
    ->Arg(10000)
    ->Arg(100000)
    ->Unit(benchmark::kMillisecond);

// A chain built top down: each new leaf goes under the deepest metric.
void BM_ChainGrownTopDownThenFreed(benchmark::State& state) {
  for (auto _ : state) {
    const auto root = QENPerformanceMetric::initLeafMetricWithName("link");
    auto deepest = root;
    for (std::int64_t made = 1; made < state.range(0); ++made) {
      auto leaf = QENPerformanceMetric::initLeafMetricWithName("link");
      deepest->addChildMetric(leaf);
      deepest = std::move(leaf);
    }
    benchmark::DoNotOptimize(root.get());
  }
  countPerMetric(state);
}
BENCHMARK(BM_ChainGrownTopDownThenFreed)
    ->Arg(1000)
    ->Arg(10000)
    ->Arg(100000)
    ->Unit(benchmark::kMillisecond);

// A root with range(0) children that each listen for will-start notifications (as a screen's
// metrics do), built and then freed: each registration and removal is one entry of the
// notification centre.
void BM_RootWithObservingChildrenThenFreed(benchmark::State& state) {
  for (auto _ : state) {
    const auto root = QENPerformanceMetric::initWithName("screen");
    for (std::int64_t made = 1; made < state.range(0); ++made) {
      root->addChildMetric(QENPerformanceMetric::initWithName("section"));
    }
    benchmark::DoNotOptimize(root.get());
  }
  countPerMetric(state);
}
BENCHMARK(BM_RootWithObservingChildrenThenFreed)
    ->Arg(1000)
    ->Arg(10000)
    ->Unit(benchmark::kMillisecond);

void BM_ObservingMetricLifecycle(benchmark::State& state) {
  for (auto _ : state) {
    auto metric = QENPerformanceMetric::initWithName("home_feed_render");
    metric->startMetric();
    metric->stopMetric();
    benchmark::DoNotOptimize(metric.get());
  }
}
BENCHMARK(BM_ObservingMetricLifecycle);

// A screen metric's life (made, started: the will-start notification goes out, stopped) while
// range(0) metrics the app forgot, started and never stopped, are alive. They listen in the base
// form, which cannot act on a start: the row must not grow with them.
void BM_StartBesideForgottenRunningMetrics(benchmark::State& state) {
  std::vector<std::shared_ptr<QENPerformanceMetric>> forgotten;
  for (std::int64_t made = 0; made < state.range(0); ++made) {
    forgotten.push_back(QENPerformanceMetric::initWithName("forgotten"));
    forgotten.back()->startMetric();
  }
  for (auto _ : state) {
    auto metric = QENPerformanceMetric::initWithName("screen");
    metric->startMetric();
    metric->stopMetric();
    benchmark::DoNotOptimize(metric.get());
  }
}
BENCHMARK(BM_StartBesideForgottenRunningMetrics)->Arg(0)->Arg(5000);

// A listener that acts on a start (it looks at the starting metric, and adopts none here).
class LookingListener : public QENPerformanceMetric,
                        public QENPerformanceMetricFactories<LookingListener> {
 public:
  using QENPerformanceMetricFactories<LookingListener>::initWithName;
  using QENPerformanceMetric::QENPerformanceMetric;
  void addChildMetricIfNeeded(const std::shared_ptr<QENPerformanceMetric>& metric) override {
    benchmark::DoNotOptimize(metric.get());
  }
};

// The same life with range(0) running listeners that act; per_listener is its time per listener.
void BM_StartHeardByListenersThatAct(benchmark::State& state) {
  std::vector<std::shared_ptr<LookingListener>> listeners;
  for (std::int64_t made = 0; made < state.range(0); ++made) {
    listeners.push_back(LookingListener::initWithName("listening_screen"));
    listeners.back()->startMetric();
  }
  for (auto _ : state) {
    auto metric = QENPerformanceMetric::initLeafMetricWithName("request");
    metric->setShouldPostMetricWillStart(true);
    metric->startMetric();
    metric->stopMetric();
    benchmark::DoNotOptimize(metric.get());
  }
  state.counters["per_listener"] = benchmark::Counter(
      static_cast<double>(state.range(0)),
      benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_StartHeardByListenersThatAct)->Arg(5000);

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

// One annotation pair added to a running metric that every thread of the row shares. The rows'
// process CPU time per pair, one thread beside two, show what contention on the metric costs.
// Each thread adds annotations of its own, as threads that measure different phases do (one
// annotation object shared by both threads would add the contention of its reference count); the
// same two are added each time, so the lists grow by pointers only.
void BM_AnnotateOneSharedMetric(benchmark::State& state) {
  static std::shared_ptr<QENPerformanceMetric> shared;
  const auto annotation = std::make_shared<const QENThrift::Annotation>(1, "first_byte", nullptr);
  const auto binaryAnnotation = std::make_shared<const QENThrift::BinaryAnnotation>(
      "net.response_status", QENThrift::BinaryAnnotation::Bytes{std::byte{200}},
      QENThrift::AnnotationType::BOOL, nullptr);
  if (state.thread_index() == 0) {  // before the loop's start, which every thread awaits
    shared = QENPerformanceMetric::initLeafMetricWithName("shared");
    shared->startMetric();
  }
  for (auto _ : state) {
    shared->addAnnotation(annotation);
    shared->addBinaryAnnotation(binaryAnnotation);
  }
}
BENCHMARK(BM_AnnotateOneSharedMetric)
    ->Iterations(1000000)
    ->MeasureProcessCPUTime()
    ->UseRealTime()
    ->Threads(1)
    ->Threads(2);

// The same two appends, each under a plain std::mutex to a shared vector, and nothing else: what
// sharing one list between two cores costs on this machine whatever the lock, the reference for
// the row above.
void BM_AppendPairToSharedVectorsUnderStdMutex(benchmark::State& state) {
  struct Lists {
    std::mutex mutex;
    std::vector<std::shared_ptr<const QENThrift::Annotation>> annotations;
    std::vector<std::shared_ptr<const QENThrift::BinaryAnnotation>> binaryAnnotations;
  };
  static std::unique_ptr<Lists> shared;
  const auto annotation = std::make_shared<const QENThrift::Annotation>(1, "first_byte", nullptr);
  const auto binaryAnnotation = std::make_shared<const QENThrift::BinaryAnnotation>(
      "net.response_status", QENThrift::BinaryAnnotation::Bytes{std::byte{200}},
      QENThrift::AnnotationType::BOOL, nullptr);
  if (state.thread_index() == 0) {
    shared = std::make_unique<Lists>();
  }
  for (auto _ : state) {
    {
      const std::lock_guard guard(shared->mutex);
      shared->annotations.push_back(annotation);
    }
    const std::lock_guard guard(shared->mutex);
    shared->binaryAnnotations.push_back(binaryAnnotation);
  }
}
BENCHMARK(BM_AppendPairToSharedVectorsUnderStdMutex)
    ->Iterations(1000000)
    ->MeasureProcessCPUTime()
    ->UseRealTime()
    ->Threads(1)
    ->Threads(2);

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

// The rows below report frames, after which every metric keeps a frame tally: they come last.

// One frame reported while `range(0)` metrics run; one frame in four is slow.
void BM_ReportFrameWhileMetricsRun(benchmark::State& state) {
  std::vector<std::shared_ptr<QENPerformanceMetric>> running;
  for (std::int64_t index = 0; index < state.range(0); ++index) {
    running.push_back(QENPerformanceMetric::initWithName("screen"));
    running.back()->startMetric();
  }
  QENFrameMonitor& monitor = QENFrameMonitor::shared();
  const double start = QENMonotonicTimeGetCurrent();
  std::uint64_t frame = 0;
  const std::size_t bytesBefore = QENAllocatedBytes();
  for (auto _ : state) {
    const double duration = frame % 4 == 0 ? 0.030 : 0.008;
    monitor.reportFrame(start + static_cast<double>(frame++) * 0.008, duration, 1.0 / 120);
  }
  reportBytesPerIteration(state, bytesBefore);
  for (const auto& metric : running) {
    metric->stopMetric();
  }
}
BENCHMARK(BM_ReportFrameWhileMetricsRun)->Arg(1)->Arg(10)->Arg(100);

// A leaf metric's life once frames are reported: its start keeps a tally, its stop reads one.
void BM_LeafMetricLifecycleWhileFramesAreReported(benchmark::State& state) {
  QENFrameMonitor::shared().reportFrame(QENMonotonicTimeGetCurrent(), 0.008, 1.0 / 120);
  BM_LeafMetricLifecycle(state);
}
BENCHMARK(BM_LeafMetricLifecycleWhileFramesAreReported);

// The main thread's heartbeat to a watching hang monitor (its own thread left out: checked here).
void BM_Heartbeat(benchmark::State& state) {
  QENHangMonitor::shared().start(
      {.captureMainThreadStack = nullptr, .observer = nullptr, .startsThread = false});
  for (auto _ : state) {
    QENHangMonitor::shared().heartbeat();
  }
  QENHangMonitor::shared().stop();
}
BENCHMARK(BM_Heartbeat);

}  // namespace

int main(int argc, char** argv) {
  return QENRunBenchmarksWithClockReadSummary(argc, argv);
}
