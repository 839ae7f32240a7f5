#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <latch>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "QENFoundation/QENNotificationCenter.h"

namespace {

struct Sender : QENObject {};

TEST(QENNotificationCenter, DeliversByNameAndSenderInRegistrationOrder) {
  QENNotificationCenter center;
  auto observer = std::make_shared<int>(0);
  auto sender = std::make_shared<Sender>();
  std::vector<std::string> calls;
  center.addObserver(observer, "A", nullptr, [&](const QENNotification& notification) {
    calls.push_back("any:" + std::any_cast<std::string>(notification.userInfo.at("key")));
  });
  center.addObserver(observer, "A", sender.get(), [&](const QENNotification& notification) {
    EXPECT_EQ(notification.object, sender);
    calls.push_back("sender");
  });
  center.addObserver(observer, "B", nullptr, [&](const QENNotification&) { calls.push_back("B"); });

  center.postNotificationName("A", sender, {{"key", std::string("one")}});
  center.postNotificationName("A", std::make_shared<Sender>(), {{"key", std::string("two")}});
  EXPECT_EQ(calls, (std::vector<std::string>{"any:one", "sender", "any:two"}));

  calls.clear();
  center.removeObserver(observer.get(), "A");
  center.postNotificationName("A", sender, {{"key", std::string("three")}});
  center.postNotificationName("B");
  EXPECT_EQ(calls, (std::vector<std::string>{"B"}));
  center.removeObserver(observer.get());
  center.postNotificationName("B");
  EXPECT_EQ(calls.size(), 1u);
  // An observer destroyed without removing itself is skipped, and its registration freed.
  center.addObserver(observer, "B", nullptr, [&](const QENNotification&) { calls.push_back("B"); });
  observer.reset();
  center.postNotificationName("B");
  EXPECT_EQ(calls.size(), 1u);
  EXPECT_EQ(center.registrationCount("B"), 0u);
}

// More observers than one post takes under the centre's lock at a time, so that the removals
// below land both in the batch being called and in later ones.
TEST(QENNotificationCenter, APostSkipsRegistrationsRemovedBeforeTheirTurnAndThoseMadeAfterItBegan) {
  QENNotificationCenter center;
  constexpr int kObservers = 40;
  std::vector<std::shared_ptr<int>> observers;
  std::vector<int> called;
  for (int index = 0; index < kObservers; ++index) {
    observers.push_back(std::make_shared<int>(index));
    center.addObserver(observers.back(), "n", nullptr, [&, index](const QENNotification&) {
      called.push_back(index);
      if (index == 0 && called.size() == 1) {
        center.removeObserver(observers[1].get());
        center.removeObserver(observers[30].get(), "n");
        center.addObserver(observers[0], "n", nullptr,
                           [&](const QENNotification&) { called.push_back(-1); });
      }
    });
  }
  center.postNotificationName("n");
  EXPECT_EQ(called.size(), kObservers - 2u);
  EXPECT_EQ(std::count(called.begin(), called.end(), 1), 0);
  EXPECT_EQ(std::count(called.begin(), called.end(), 30), 0);
  EXPECT_EQ(std::count(called.begin(), called.end(), -1), 0) << "registered after the post began";
  EXPECT_EQ(center.registrationCount("n"), kObservers - 2u + 1u);

  called.clear();
  center.postNotificationName("n");
  EXPECT_EQ(called.back(), -1);
  for (auto& observer : observers) {
    center.removeObserver(observer.get());
  }
  EXPECT_EQ(center.registrationCount("n"), 0u);
}

// An observer that records whether it was called while, or after, being destroyed.
struct Probe {
  std::atomic<bool> alive{true};
  ~Probe() { alive = false; }
};

TEST(QENNotificationCenter, NeverCallsAnObserverWhoseDestructionHasBegun) {
  QENNotificationCenter center;
  std::atomic<int> callsOnDyingObservers{0};
  for (int round = 0; round < 200; ++round) {
    auto probe = std::make_shared<Probe>();
    Probe* const raw = probe.get();
    center.addObserver(probe, "tick", nullptr, [raw, &callsOnDyingObservers](const auto&) {
      if (!raw->alive) {
        ++callsOnDyingObservers;
      }
    });
    std::latch posting(1);
    std::atomic<bool> stop{false};
    std::thread poster([&] {
      center.postNotificationName("tick");
      posting.count_down();
      while (!stop) {
        center.postNotificationName("tick");
      }
    });
    posting.wait();
    probe.reset();  // destroyed here or on the poster thread, whichever lets go last
    center.removeObserver(raw);
    stop = true;
    poster.join();
  }
  EXPECT_EQ(callsOnDyingObservers, 0);
}

}  // namespace
