#include <gtest/gtest.h>

#include "QENMeasuredTask.h"

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
}

}  // namespace
