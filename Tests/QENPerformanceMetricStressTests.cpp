#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
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

// Counts every completion callback call, per callback.
class CallbackLedger {
 public:
  CallbackLedger() : calls_(kThreads * kOperationsPerThread) {}

  Metric::CompletionBlock blockWithId(int id) {
    ++added_;
    return [this, id](bool) {
      ++calls_[id];
      const std::lock_guard guard(mutex_);
      ++totalCalls_;
      called_.notify_all();
    };
  }

  int added() const { return added_; }
  std::atomic<std::size_t> annotationsAdded{0};
  int maximumCallsOfOneCallback() const {
    int maximum = 0;
    for (const auto& calls : calls_) {
      maximum = std::max(maximum, calls.load());
    }
    return maximum;
  }
  // Waits for the expected number of calls (bounded, so that a lost callback fails the test).
  int waitForCalls(int expected) {
    std::unique_lock lock(mutex_);
    called_.wait_for(lock, std::chrono::seconds(60), [&] { return totalCalls_ >= expected; });
    return totalCalls_;
  }

 private:
  std::vector<std::atomic<int>> calls_;
  std::atomic<int> added_{0};
  std::mutex mutex_;
  std::condition_variable called_;
  int totalCalls_ = 0;
};

// The states the state table allows: a valid metric is unstopped or stopped after its start; an
// invalid one always has a stop time.
bool isAllowedState(const Metric& metric) {
  metric.lock();
  const double start = metric.startTime();
  const double stop = metric.stopTime();
  const bool valid = metric._locked_isValid();
  metric.unlock();
  if (valid) {
    return stop == kUnsetTime || (start != kUnsetTime && start <= stop);
  }
  return stop != kUnsetTime;
}

void performRandomOperations(int thread, std::vector<std::vector<std::shared_ptr<Metric>>>& levels,
                             CallbackLedger& ledger) {
  std::mt19937 random(thread + 1);
  auto pick = [&](int level) { return levels[level][random() % kMetricsPerLevel]; };
  for (int operation = 0; operation < kOperationsPerThread; ++operation) {
    const int level = static_cast<int>(random() % kLevels);
    const auto metric = pick(level);
    switch (random() % 7) {
      case 0:
        metric->startMetric();
        break;
      case 1:
        metric->stopMetric();
        break;
      case 2:
        metric->invalidateWithReason(static_cast<QENPerformanceMetricStopReason>(random() % 6));
        break;
      case 3:  // only downwards, so that the trees stay acyclic
        if (level + 1 < kLevels) {
          metric->addChildMetric(pick(level + 1));
        }
        break;
      case 4:
        metric->addCompletionBlock(ledger.blockWithId(thread * kOperationsPerThread + operation));
        break;
      case 5:
        metric->addAnnotation(
            std::make_shared<const QENThrift::Annotation>(operation, "a", nullptr));
        ++ledger.annotationsAdded;
        break;
      default:
        (void)metric->isStarted();
        (void)metric->isInFlight();
        (void)metric->isFinished();
        (void)metric->shouldUpload();
        (void)metric->metricTime();
        (void)metric->childMetrics();
        (void)metric->debugDescription();
        if (operation % 64 == 0)  // an export walks the whole tree: now and then is enough
          (void)metric->spansWithAppContext(QENPerformanceMetricAppContext("1", "x"));
        break;
    }
  }
}

TEST(MetricStress,
     ConcurrentWorkOnSharedTreesRunsEveryCallbackOnceLosesNoAnnotationAndKeepsStatesAllowed) {
  std::vector<std::vector<std::shared_ptr<Metric>>> levels(kLevels);
  for (auto& level : levels) {
    for (int index = 0; index < kMetricsPerLevel; ++index) {
      level.push_back(Metric::initWithName("stress"));
    }
  }
  CallbackLedger ledger;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back(performRandomOperations, thread, std::ref(levels), std::ref(ledger));
  }
  for (auto& thread : threads) {
    thread.join();
  }

  int neverCalled = 0;
  std::size_t annotations = 0;
  for (const auto& level : levels) {
    for (const auto& metric : level) {
      annotations += metric->annotations().size();
      EXPECT_TRUE(isAllowedState(*metric)) << metric->debugDescription();
      metric->startMetric();
      metric->stopMetric();
      // Only a metric whose start does not come after its invalidation keeps callbacks forever.
      if (const auto stored = metric->completionBlocks()) {
        neverCalled += static_cast<int>(stored->size());
      }
    }
  }
  const int expected = ledger.added() - neverCalled;
  EXPECT_EQ(ledger.waitForCalls(expected), expected);
  EXPECT_LE(ledger.maximumCallsOfOneCallback(), 1);
  EXPECT_EQ(annotations, ledger.annotationsAdded) << "no concurrent add is lost";
}

}  // namespace
