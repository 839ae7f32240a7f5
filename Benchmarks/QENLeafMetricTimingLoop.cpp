// The cost of a leaf metric's whole life (create, start, stop, destroy) beside a clock read, in a
// plain timing loop: it builds with any C++ library (Debian's Google Benchmark is built for
// libstdc++ only), so libc++ and libstdc++ builds can be compared in one run.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <vector>

#include "QENFoundation/QENMonotonicTime.h"
#include "QENPerformanceMetric.h"

namespace {

using Clock = std::chrono::steady_clock;
constexpr int kIterations = 200000;
constexpr int kRounds = 7;

// The median over kRounds of the nanoseconds per iteration of `work`.
template <class Work>
double medianNanoseconds(const Work& work) {
  std::vector<double> rounds;
  for (int round = 0; round < kRounds; ++round) {
    const auto started = Clock::now();
    for (int iteration = 0; iteration < kIterations; ++iteration) {
      work();
    }
    rounds.push_back(std::chrono::duration<double, std::nano>(Clock::now() - started).count() /
                     kIterations);
  }
  std::sort(rounds.begin(), rounds.end());
  return rounds[kRounds / 2];
}

}  // namespace

int main() {
  volatile double sink = 0;
  const double clockRead = medianNanoseconds([&] { sink = sink + QENMonotonicTimeGetCurrent(); });
  const double leaf = medianNanoseconds([] {
    const auto metric = QENPerformanceMetric::initLeafMetricWithName("leaf");
    metric->startMetric();
    metric->stopMetric();
  });
  std::printf("clock read %.1f ns; leaf metric %.1f ns = %.2f clock reads\n", clockRead, leaf,
              leaf / clockRead);
}
