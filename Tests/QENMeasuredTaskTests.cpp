#include <gtest/gtest.h>

#include "QENCommandLineOptions/QENCommandLineOptions.h"
#include "QENLocalPerformanceManager.h"
#include "QENMeasuredTask.h"
#include "QENUnmeasuredTask.h"
#include "Support/QENCapturedAssertions.h"

namespace {

TEST(MeasuredTask, RunsInsideItsMetricUnderTheParentWhileTheParentLives) {
  auto parent = QENPerformanceMetric::initWithName("cold_start");
  bool ranWhileStarted = false;
  std::shared_ptr<QENMeasuredTask> task;
  task = QENMeasuredTask::initWithName(QENMeasuredTaskAppStartupCrashReporter, 1.0, parent, [&] {
    ranWhileStarted = task->performanceMetric()->isInFlight();
  });
  EXPECT_FALSE(task->performanceMetric()->isStarted()) << "made, not started";
  EXPECT_FALSE(task->performanceMetric()->shouldObserveMetricWillStart());
  task->execute();
  EXPECT_TRUE(ranWhileStarted);
  EXPECT_TRUE(task->performanceMetric()->isFinished());
  EXPECT_EQ(parent->childMetrics(), QENPerformanceMetric::MetricList{task->performanceMetric()});

  // A parent released before the task runs: the task still runs and stops, attached nowhere.
  int runs = 0;
  const auto orphan = QENMeasuredTask::initWithName("orphan", 1.0, parent, [&] { ++runs; });
  parent.reset();
  orphan->execute();
  EXPECT_EQ(runs, 1);
  EXPECT_TRUE(orphan->performanceMetric()->isFinished());
  EXPECT_EQ(orphan->performanceMetric()->parentMetric(), nullptr);
}

TEST(MeasuredTask, ReportsMissingNameOrTaskAndStillBuildsTheTask) {
  QENCapturedAssertions captured;
  const auto parent = QENPerformanceMetric::initWithName("cold_start");
  const auto empty = QENMeasuredTask::initWithName(std::nullopt, 1.0, parent, nullptr);
  empty->execute();
  EXPECT_EQ(captured.messages(),
            (std::vector<std::string>{"Invalid parameter not satisfying: metricName",
                                      "Invalid parameter not satisfying: task"}));
  EXPECT_EQ(captured.records()[0].method,
            "-[QENMeasuredTask initWithName:uploadFraction:parentMetric:task:]");
  EXPECT_TRUE(empty->performanceMetric()->isFinished()) << "a zero-length child of the parent";
  EXPECT_EQ(parent->childMetrics().size(), 1u);
  EXPECT_EQ(empty->performanceMetric()->name(), std::nullopt) << "absent, not \"\"";
  EXPECT_TRUE(empty->performanceMetric()->debugDescription().starts_with("Metric: (null);"));

  const auto unmeasured = QENUnmeasuredTask::initWithTask(nullptr);
  unmeasured->execute();
  EXPECT_EQ(captured.messages().back(), "Invalid parameter not satisfying: task");
}

TEST(MeasuredTask, ExecutesAtOnceAndHandsOverTheFinishedMetric) {
  const auto parent = QENPerformanceMetric::initWithName("cold_start");
  std::shared_ptr<QENPerformanceMetric> completed;
  int runs = 0;
  QENMeasuredTask::executeMeasuredTaskWithName(
      "image_manager", 1.0, parent, [&] { ++runs; },
      [&](const std::shared_ptr<QENPerformanceMetric>& metric) { completed = metric; });
  QENMeasuredTask::executeMeasuredTaskWithName("shared_client", 1.0, nullptr, [&] { ++runs; });
  EXPECT_EQ(runs, 2);
  ASSERT_NE(completed, nullptr);
  EXPECT_TRUE(completed->isFinished());
  EXPECT_EQ(parent->childMetrics(), QENPerformanceMetric::MetricList{completed});

  QENCapturedAssertions captured;
  QENMeasuredTask::executeMeasuredTaskWithName(
      "no_task", 1.0, nullptr, nullptr,
      [&](const std::shared_ptr<QENPerformanceMetric>& metric) { completed = metric; });
  EXPECT_EQ(captured.messages(),
            std::vector<std::string>{"Invalid parameter not satisfying: task"});
  EXPECT_TRUE(completed->isFinished()) << "measured all the same, and handed over";
}

class LocalPerformanceManager : public ::testing::Test {
 protected:
  ~LocalPerformanceManager() override { QENCommandLineOptions::resetToEnvironment(); }
  static bool target(std::string_view name) {
    return QENLocalPerformanceManager::isMetricTheTargetForCurrentPerformanceTest(name);
  }
  static bool logged(std::string_view name) {
    return QENLocalPerformanceManager::shouldLogMetricForCurrentPerformanceTest(name);
  }
};

TEST_F(LocalPerformanceManager, WithoutATestOnlyTheHomeFeedRenderCounts) {
  QENCommandLineOptions::setPerformanceTestName(std::nullopt);
  EXPECT_TRUE(target("home_feed_render") && logged("home_feed_render"));
  EXPECT_FALSE(target("Home_feed_render") || logged("home_feed_render_app_init"));
  QENCommandLineOptions::setPerformanceTestName("OwnProfile");
  EXPECT_TRUE(target("own_profile") && logged("own_profile"));
  EXPECT_FALSE(target("home_feed_render"));
  QENCommandLineOptions::setPerformanceTestName("UnknownTest");
  EXPECT_FALSE(target("home_feed_render") || logged("home_feed_render"));
}

}  // namespace
