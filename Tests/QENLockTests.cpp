#include <gtest/gtest.h>

#include <mutex>
#include <thread>
#include <vector>

#include "QENFoundation/QENLock.h"

namespace {

TEST(QENLock, ExcludesOtherThreadsAndLetsItsOwnerReenterAndTryAgain) {
  QENLock lock("test.lock");
  EXPECT_STREQ(lock.label(), "test.lock");
  long counter = 0;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&] {
      for (int iteration = 0; iteration < 20000; ++iteration) {
        const std::lock_guard outer(lock);
        const std::lock_guard inner(lock);  // the owner takes it again
        ++counter;
      }
    });
  }
  for (auto& thread : threads)
    thread.join();
  EXPECT_EQ(counter, 4 * 20000);
  // A try fails only while another thread holds it.
  ASSERT_TRUE(lock.try_lock());
  ASSERT_TRUE(lock.try_lock());
  bool acquiredElsewhere = true;
  std::thread([&] { acquiredElsewhere = lock.try_lock(); }).join();
  EXPECT_FALSE(acquiredElsewhere);
  lock.unlock();
  std::thread([&] { acquiredElsewhere = lock.try_lock(); }).join();
  EXPECT_FALSE(acquiredElsewhere) << "still held once after two takes and one release";
  lock.unlock();
  std::thread([&] {
    acquiredElsewhere = lock.try_lock();
    lock.unlock();
  }).join();
  EXPECT_TRUE(acquiredElsewhere);
}

}  // namespace
