#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>

#include "QENFoundation/QENMonotonicTime.h"
#include "QENHangDetector.h"
#include "QENHangMonitor.h"
#include "QENPerformanceMetric.h"
#include "Support/QENAnnotationReaders.h"

namespace {

enum class Event { kHeartbeat, kCheck, kBackground, kForeground };
using Hangs = std::vector<std::pair<double, double>>;

// The hangs a detector with a 2 s threshold, checking every 0.5 s, tells of over the timeline:
// a heartbeat at 0, then each event at its time.
Hangs hangsOf(const std::vector<std::pair<Event, double>>& timeline, double threshold = 2,
              double checkInterval = 0.5) {
  QENHangDetector detector(threshold, checkInterval, 0);
  Hangs hangs;
  const auto note = [&](const std::optional<QENHang>& hang) {
    if (hang) {
      hangs.emplace_back(hang->start, hang->end);
    }
  };
  for (const auto& [event, time] : timeline) {
    if (event == Event::kForeground) {
      detector.enterForeground(time);
    } else {
      note(event == Event::kHeartbeat ? detector.heartbeat(time)
           : event == Event::kCheck   ? detector.check(time).ended
                                      : detector.enterBackground(time));
    }
  }
  return hangs;
}

// Checks every half second from `from` to `to`.
std::vector<std::pair<Event, double>> checks(double from, double to,
                                             std::vector<std::pair<Event, double>> then = {}) {
  std::vector<std::pair<Event, double>> timeline;
  for (double time = from; time <= to + 1e-9; time += 0.5) {
    timeline.emplace_back(Event::kCheck, time);
  }
  timeline.insert(timeline.end(), then.begin(), then.end());
  return timeline;
}

TEST(HangDetector, OnlyAGapTheWatchdogSawInTheForegroundIsAHang) {
  using enum Event;
  // The timeline with the app gone to the background at 0.1 s.
  const auto inBackground = [](std::vector<std::pair<Event, double>> timeline) {
    timeline.insert(timeline.begin(), {kBackground, 0.1});
    return timeline;
  };
  const struct {
    const char* name;
    std::vector<std::pair<Event, double>> timeline;
    Hangs hangs;
  } table[] = {
      {"2.6 s without a heartbeat", checks(0.5, 2.5, {{kHeartbeat, 2.6}}), {{0, 2.6}}},
      {"1.9 s without a heartbeat", checks(0.5, 1.5, {{kHeartbeat, 1.9}}), {}},
      {"the same gap in the background", inBackground(checks(0.5, 2.5, {{kHeartbeat, 2.6}})), {}},
      {"back in the foreground, the count starts again",
       inBackground(checks(0.5, 2.5, {{kForeground, 2.6}, {kCheck, 3}, {kHeartbeat, 3.1}})),
       {}},
      {"a check twice its period after the last is no suspension",
       {{kCheck, 0.5}, {kCheck, 1.5}, {kCheck, 2}, {kHeartbeat, 2.6}},
       {{0, 2.6}}},
      {"a check long after the last: the process was suspended",
       {{kCheck, 0.5}, {kCheck, 5}, {kCheck, 5.5}, {kHeartbeat, 5.6}},
       {}},
      {"suspended during a hang: it ends where it was last seen",
       checks(0.5, 2.5, {{kCheck, 9}, {kHeartbeat, 9.1}}),
       {{0, 2.5}}},
      {"into the background during a hang", checks(0.5, 2.5, {{kBackground, 2.7}}), {{0, 2.7}}},
  };
  for (const auto& row : table) {
    EXPECT_EQ(hangsOf(row.timeline), row.hangs) << row.name;
  }
  // A threshold below 100 ms is raised to it.
  EXPECT_EQ(
      hangsOf(
          {{kCheck, 0.05}, {kHeartbeat, 0.06}, {kCheck, 0.12}, {kCheck, 0.17}, {kHeartbeat, 0.2}},
          0.01, 0.05),
      (Hangs{{0.06, 0.2}}));
}

TEST(HangMonitor, ATopLevelMetricRunningThroughAHangGetsItAsAChildWithTheMainThreadsStack) {
  std::vector<std::pair<bool, double>> heard;  // ongoing, end
  QENHangMonitor& monitor = QENHangMonitor::shared();
  monitor.start({.captureMainThreadStack = [] { return std::string("main: Feed.layout"); },
                 .observer = [&](const QENRecordedHang& hang,
                                 bool ongoing) { heard.emplace_back(ongoing, hang.end); },
                 .startsThread = false});
  const double start = QENMonotonicTimeGetCurrent();
  const auto feed = QENPerformanceMetric::initWithName("feed_render");
  const auto child = QENPerformanceMetric::initWithName("feed_layout");
  feed->addChildMetric(child);
  feed->startMetricWithTime(start);
  child->startMetricWithTime(start);
  monitor.heartbeat(start);
  for (double after = 0.5; after <= 2.5; after += 0.5) {
    monitor.check(start + after);
  }
  monitor.heartbeat(start + 2.6);
  feed->stopMetricWithTime(start + 3);
  monitor.stop();
  EXPECT_EQ(heard, (std::vector<std::pair<bool, double>>{
                       {true, start + 2}, {true, start + 2.5}, {false, start + 2.6}}));
  const auto hangs = feed->childMetrics();
  ASSERT_EQ(QENTest::namesOf(hangs), (std::vector<std::string>{"feed_layout", "app.hang"}));
  EXPECT_EQ(std::pair(hangs[1]->startTime(), hangs[1]->stopTime()), std::pair(start, start + 2.6));
  const auto stack = QENTest::find(hangs[1]->binaryAnnotations(), "app.hang.stack");
  ASSERT_NE(stack, nullptr);
  EXPECT_EQ(QENTest::Vocabulary::stringValueFromBinaryAnnotation(stack),
            std::optional<std::string>("main: Feed.layout"));
  EXPECT_EQ(child->childMetrics().size(), 0u);  // a hang goes to the top of each tree only
}

TEST(HangMonitor, ItsOwnThreadFindsAHangWhenNoHeartbeatComes) {
  std::mutex mutex;
  std::condition_variable heard;
  bool ongoing = false;
  QENHangMonitor::shared().start({.threshold = 0.2,
                                  .captureMainThreadStack = nullptr,
                                  .observer = [&](const QENRecordedHang&, bool going) {
                                    const std::lock_guard guard(mutex);
                                    ongoing = ongoing || going;
                                    heard.notify_all();
                                  }});
  std::unique_lock lock(mutex);
  EXPECT_TRUE(heard.wait_for(lock, std::chrono::seconds(60), [&] { return ongoing; }));
  lock.unlock();
  QENHangMonitor::shared().stop();
}

}  // namespace
