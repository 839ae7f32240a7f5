#include <gtest/gtest.h>

#include <atomic>
#include <random>
#include <thread>
#include <vector>

#include "QENPerformanceMetric.h"

namespace {

using Metric = QENPerformanceMetric;

constexpr int kLevels = 3;
constexpr int kMetricsPerLevel = 8;
constexpr int kThreads = 4;
constexpr int kOperationsPerThread = 4000;

// The states a metric may be in: a valid one is unstopped or stopped after its start; an invalid
// one always has a stop time.
bool isAllowedState(const Metric& metric) {
  metric.lock();
  const double start = metric.startTime();
  const double stop = metric.stopTime();
  const bool valid = metric._locked_isValid();
  metric.unlock();
  return valid ? stop == kUnsetTime || (start != kUnsetTime && start <= stop) : stop != kUnsetTime;
}

// Every completion callback added, and how often each ran.
struct Ledger {
  std::vector<std::atomic<int>> calls =
      std::vector<std::atomic<int>>(kThreads * kOperationsPerThread);
  std::atomic<int> added{0};
  std::atomic<int> total{0};
  std::atomic<std::size_t> annotations{0};
};

void performRandomOperations(int thread,
                             const std::vector<std::vector<std::shared_ptr<Metric>>>& levels,
                             Ledger& ledger) {
  std::mt19937 random(thread + 1);
  const auto pick = [&](int level) { return levels[level][random() % kMetricsPerLevel]; };
  for (int operation = 0; operation < kOperationsPerThread; ++operation) {
    const int level = static_cast<int>(random() % kLevels);
    const auto metric = pick(level);
    const int id = thread * kOperationsPerThread + operation;
    switch (random() % 7) {
      case 0:
        metric->startMetric();
        break;
      case 1:
        metric->stopMetric();
        (void)metric->debugDescription();
        break;
      case 2:
        metric->invalidateWithReason(static_cast<QENPerformanceMetricStopReason>(random() % 6));
        break;
      case 3:  // only downwards, so that the trees stay acyclic
        if (level + 1 < kLevels)
          metric->addChildMetric(pick(level + 1));
        break;
      case 4:
        ++ledger.added;
        metric->addCompletionBlock([&ledger, id](bool) {
          ++ledger.calls[id];
          ++ledger.total;
          ledger.total.notify_all();
        });
        break;
      case 5:
        metric->addAnnotation(
            std::make_shared<const QENThrift::Annotation>(operation, "a", nullptr));
        ++ledger.annotations;
        break;
      default:  // readers; an export walks the whole tree, so now and then is enough
        (void)(metric->isInFlight() + metric->shouldUpload() + metric->metricTime());
        (void)(operation % 64 == 0 ? metric->spansWithAppContext({"1", "x"}).size() : 0);
        break;
    }
  }
}

TEST(MetricStress,
     ConcurrentWorkOnSharedTreesRunsEveryCallbackOnceLosesNoAnnotationAndKeepsStatesAllowed) {
  std::vector<std::vector<std::shared_ptr<Metric>>> levels(kLevels);
  for (auto& level : levels) {
    for (int index = 0; index < kMetricsPerLevel; ++index)
      level.push_back(Metric::initWithName("stress"));
  }
  Ledger ledger;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread)
    threads.emplace_back(performRandomOperations, thread, std::cref(levels), std::ref(ledger));
  for (auto& thread : threads)
    thread.join();

  std::size_t annotations = 0;
  int neverCalled = 0;
  for (const auto& level : levels) {
    for (const auto& metric : level) {
      annotations += metric->annotations().size();
      EXPECT_TRUE(isAllowedState(*metric)) << metric->debugDescription();
      metric->startMetric();
      metric->stopMetric();
      // Only a metric whose start does not come after its invalidation keeps callbacks forever.
      if (const auto stored = metric->completionBlocks())
        neverCalled += static_cast<int>(stored->size());
    }
  }
  EXPECT_EQ(annotations, ledger.annotations) << "no concurrent add is lost";
  const int expected = ledger.added - neverCalled;
  for (int seen = ledger.total; seen < expected; seen = ledger.total)
    ledger.total.wait(seen);  // a lost callback leaves the test to its timeout
  EXPECT_EQ(ledger.total, expected);
  for (const auto& calls : ledger.calls)
    EXPECT_LE(calls.load(), 1);
}

}  // namespace
