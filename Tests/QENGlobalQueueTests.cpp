#include <gtest/gtest.h>

#include <atomic>
#include <latch>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "QENFoundation/QENFoundationDevLogger.h"
#include "QENFoundation/QENGlobalQueue.h"
#include "QENFoundation/QENThreadPoolExecutor.h"

namespace {

// Each task waits until all have started: only a worker per task lets them finish. Sixteen is
// far above the core count of the machines this runs on; later rounds meet the idle workers of
// earlier ones.
TEST(QENGlobalQueue, WorkThatWaitsForOtherWorkNeverStarves) {
  constexpr int kTasks = 16;
  for (int round = 0; round < 3; ++round) {
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

// Four threads submit at once to workers that idle for seconds, so each must wake for new work; a
// task that throws is reported and the next still runs; idle workers retire.
TEST(QENThreadPoolExecutor, RunsEveryTaskOnceWithinItsThreadLimitReportsThrowsAndRetires) {
  std::vector<std::string> messages;
  std::mutex messagesMutex;
  QENFoundationDevLogger::sharedInstance().remote().setSink([&](const QENDevLogRecord& record) {
    const std::lock_guard guard(messagesMutex);
    messages.push_back(record.message);
  });
  constexpr int kTasks = 2000;
  std::atomic<int> runs{0};
  std::latch allRan(kTasks + 1);
  QENThreadPoolExecutor executor(3);
  executor.execute([] { throw std::runtime_error("host bug"); });
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
  for (auto& submitter : submitters)
    submitter.join();
  executor.execute([&] { allRan.count_down(); });
  allRan.wait();
  EXPECT_EQ(runs, kTasks);
  EXPECT_LE(executor.threadCount(), 3u);
  QENThreadPoolExecutor retiring(2, std::chrono::milliseconds(1));
  std::latch ran(1);
  retiring.execute([&] { ran.count_down(); });
  ran.wait();
  // Retirement is the event awaited here; it follows a millisecond of idleness.
  while (retiring.threadCount() != 0)
    std::this_thread::yield();
  QENFoundationDevLogger::sharedInstance().remote().setSink(nullptr);
  EXPECT_EQ(messages, std::vector<std::string>{"Work on the global queue threw: host bug"});
}

}  // namespace
