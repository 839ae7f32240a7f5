#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <latch>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "QENFoundation/QENFoundationDevLogger.h"
#include "QENFoundation/QENGlobalQueue.h"
#include "QENFoundation/QENThreadPoolExecutor.h"

namespace {

// A host's executor: counts what it is given and runs it on a thread of its own.
class CountingExecutor : public QENExecutor {
 public:
  void execute(std::function<void()> work) override {
    ++submitted;
    std::thread(std::move(work)).detach();
  }
  std::atomic<int> submitted{0};
};

TEST(QENGlobalQueue, SubmitsToTheExecutorTheHostInstalls) {
  auto executor = std::make_shared<CountingExecutor>();
  QENGlobalQueue::setExecutor(executor);
  std::promise<void> ran;
  QENGlobalQueue::dispatchAsync([&] { ran.set_value(); });
  ran.get_future().get();
  EXPECT_EQ(executor->submitted, 1);

  QENGlobalQueue::setExecutor(nullptr);
  std::promise<void> ranOnDefault;
  QENGlobalQueue::dispatchAsync([&] { ranOnDefault.set_value(); });
  ranOnDefault.get_future().get();
  EXPECT_EQ(executor->submitted, 1);
}

TEST(QENThreadPoolExecutor, RunsEveryTaskOnceWithinItsThreadLimit) {
  constexpr int kTasks = 2000;
  std::atomic<int> runs{0};
  std::latch allRan(kTasks);
  QENThreadPoolExecutor executor(3);
  std::vector<std::thread> submitters;
  for (int submitter = 0; submitter < 4; ++submitter) {
    submitters.emplace_back([&] {
      for (int task = 0; task < kTasks / 4; ++task) {
        executor.execute([&] {
          ++runs;
          allRan.count_down();
        });
      }
    });
  }
  for (auto& submitter : submitters) {
    submitter.join();
  }
  allRan.wait();
  EXPECT_EQ(runs, kTasks);
  EXPECT_LE(executor.threadCount(), 3u);
}

// Each task waits until all have started: only a worker per task lets them finish. Sixteen is
// far above the core count of the machines this runs on.
TEST(QENGlobalQueue, WorkThatWaitsForOtherWorkNeverStarves) {
  constexpr int kTasks = 16;
  for (int round = 0; round < 3; ++round) {  // later rounds meet the idle workers of earlier ones
    std::latch started(kTasks);
    std::latch done(kTasks);
    for (int task = 0; task < kTasks; ++task) {
      QENGlobalQueue::dispatchAsync([&] {
        started.arrive_and_wait();
        done.count_down();
      });
    }
    done.wait();
  }
}

TEST(QENThreadPoolExecutor, IdleWorkersRetireAndThrowingWorkIsReported) {
  QENThreadPoolExecutor executor(4, std::chrono::milliseconds(1));
  std::vector<std::string> messages;
  std::mutex messagesMutex;
  QENFoundationDevLogger::sharedInstance().remote().setSink([&](const QENDevLogRecord& record) {
    const std::lock_guard guard(messagesMutex);
    messages.push_back(record.message);
  });
  std::promise<void> ranAfterThrow;
  executor.execute([] { throw std::runtime_error("host bug"); });
  executor.execute([&] { ranAfterThrow.set_value(); });
  ranAfterThrow.get_future().get();
  // Retirement is the event awaited here; it follows a millisecond of idleness.
  while (executor.threadCount() != 0) {
    std::this_thread::yield();
  }
  QENFoundationDevLogger::sharedInstance().remote().setSink(nullptr);
  EXPECT_EQ(messages, std::vector<std::string>{"Work on the global queue threw: host bug"});
}

}  // namespace
