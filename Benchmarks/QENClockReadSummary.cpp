#include "QENClockReadSummary.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <thread>

#include "QENFoundation/QENMonotonicTime.h"

namespace {

void BM_MonotonicClockRead(benchmark::State& state) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(QENMonotonicTimeGetCurrent());
  }
}
BENCHMARK(BM_MonotonicClockRead);

class ClockReadReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if ((run.run_type == Run::RT_Iteration && run.repetitions <= 1) ||
          (run.run_type == Run::RT_Aggregate && run.aggregate_name == "median")) {
        nanoseconds[run.run_name.str()] = figureOf(run);
      }
    }
  }

  std::map<std::string, double> nanoseconds;

 private:
  static double figureOf(const Run& run) {
    const auto perSpan = run.counters.find("time_per_span");
    if (perSpan != run.counters.end()) {
      return perSpan->second.value * 1e9;
    }
    const bool processTime =
        run.threads > 1 || run.run_name.str().find("process_time") != std::string::npos;
    return processTime ? run.GetAdjustedCPUTime() : run.GetAdjustedRealTime();
  }
};

}  // namespace

int QENRunBenchmarksWithClockReadSummary(int argc, char** argv) {
  // A host app always runs many threads. Once a second thread has existed, the C and C++
  // runtimes stop taking their single-threaded shortcuts (plain reference counts, lock-free
  // mutexes), so the figures are those of a real process.
  std::thread([] {}).join();
  benchmark::Initialize(&argc, argv);
  ClockReadReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  const auto clock = reporter.nanoseconds.find("BM_MonotonicClockRead");
  if (clock != reporter.nanoseconds.end() && clock->second > 0) {
    std::printf("\nIn monotonic clock reads of %.1f ns:\n", clock->second);
    for (const auto& [name, nanoseconds] : reporter.nanoseconds) {
      std::printf("  %-60s %9.1f ns = %7.2f clock reads\n", name.c_str(), nanoseconds,
                  nanoseconds / clock->second);
    }
  }
  benchmark::Shutdown();
  return 0;
}
