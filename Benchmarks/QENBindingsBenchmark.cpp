// A leaf metric's life (create, start, stop, release) through the C interface and through the
// Java binding, beside the same life in C++, in one run. The Java rows run in a JVM this program
// starts with the binding's jars, in batches of kJavaBatch leaves timed as one, so that the call
// from C++ into Java is spread thin; each row's figure is per leaf.
#include <benchmark/benchmark.h>
#include <jni.h>

#include <cstdio>
#include <string>

#include "QENClockReadSummary.h"
#include "QENPerformanceLoggerC.h"
#include "QENPerformanceMetric.h"

namespace {

constexpr int kJavaBatch = 1000;

void BM_LeafMetricLifecycle(benchmark::State& state) {
  for (auto _ : state) {
    auto metric = QENPerformanceMetric::initLeafMetricWithName("leaf");
    metric->startMetric();
    metric->stopMetric();
    benchmark::DoNotOptimize(metric.get());
  }
}
BENCHMARK(BM_LeafMetricLifecycle);

void BM_LeafMetricLifecycleThroughC(benchmark::State& state) {
  for (auto _ : state) {
    QENCMetric metric;
    QENCMetricCreateLeaf("leaf", 4, &metric);
    QENCMetricStart(metric);
    QENCMetricStop(metric);
    QENCMetricRelease(metric);
  }
}
BENCHMARK(BM_LeafMetricLifecycleThroughC);

struct JavaLoop {
  JNIEnv* env = nullptr;
  jclass loop = nullptr;
  jmethodID run = nullptr;
};

JavaLoop& javaLoop() {
  static JavaLoop java = [] {
    JavaLoop made;
    std::string classPath = "-Djava.class.path=" QEN_BENCHMARK_CLASS_PATH;
    std::string library = "-Dcom.qen.performancelogger.library=" QEN_BENCHMARK_JNI_LIBRARY;
    JavaVMOption options[] = {{classPath.data(), nullptr}, {library.data(), nullptr}};
    JavaVMInitArgs arguments{JNI_VERSION_1_8, 2, options, JNI_FALSE};
    JavaVM* vm = nullptr;
    if (JNI_CreateJavaVM(&vm, reinterpret_cast<void**>(&made.env), &arguments) != JNI_OK) {
      std::fprintf(stderr, "no JVM\n");
      return made;
    }
    made.loop = made.env->FindClass("com/qen/performancelogger/LeafMetricLoop");
    made.run = made.loop ? made.env->GetStaticMethodID(made.loop, "run", "(I)V") : nullptr;
    if (made.run != nullptr) {
      made.env->CallStaticVoidMethod(made.loop, made.run, 200 * kJavaBatch);  // the JIT's warm-up
    }
    return made;
  }();
  return java;
}

void BM_LeafMetricLifecycleThroughJava(benchmark::State& state) {
  JavaLoop& java = javaLoop();
  if (java.run == nullptr) {
    state.SkipWithError("the JVM or the benchmark's classes could not be loaded");
    return;
  }
  for (auto _ : state) {
    java.env->CallStaticVoidMethod(java.loop, java.run, kJavaBatch);
  }
  // An iteration is a batch; the summary's figure is per leaf.
  state.counters["time_per_span"] = benchmark::Counter(
      static_cast<double>(state.iterations()) * kJavaBatch,
      benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_LeafMetricLifecycleThroughJava)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
  return QENRunBenchmarksWithClockReadSummary(argc, argv);
}
