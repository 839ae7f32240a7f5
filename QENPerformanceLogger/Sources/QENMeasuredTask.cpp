#include "QENMeasuredTask.h"

#include "QENAssert.h"

const std::string QENMeasuredTaskAppStartupCrashReporter = "app_startup_crash_reporter";
const std::string QENMeasuredTaskAppStartupHomeFeed = "app_startup_home_feed";
const std::string QENMeasuredTaskAppStartupHomeFeedCached = "app_startup_home_feed_cached";
const std::string QENMeasuredTaskAppStartupImageManager = "app_startup_image_manager";
const std::string QENMeasuredTaskAppStartupSharedClient = "app_startup_shared_client";
const std::string QENMeasuredTaskAppStartupFacebook = "app_startup_facebook";
const std::string QENMeasuredTaskAppStartupVersioningAndExperience =
    "app_startup_versioning_experience";

std::shared_ptr<QENMeasuredTask> QENMeasuredTask::initWithName(
    std::optional<std::string> metricName, double uploadFraction,
    const std::shared_ptr<QENPerformanceMetric>& parentMetric, Task task) {
  QENParameterAssert(metricName.has_value(), "metricName",
                     "-[QENMeasuredTask initWithName:uploadFraction:parentMetric:task:]");
  QENParameterAssert(task != nullptr, "task",
                     "-[QENMeasuredTask initWithName:uploadFraction:parentMetric:task:]");
  auto measuredTask = std::make_shared<QENMeasuredTask>();
  measuredTask->performanceMetric_ =
      metricName ? QENPerformanceMetric::initWithName(std::move(*metricName), uploadFraction, false)
                 : QENPerformanceMetric::initWithName(std::nullopt, uploadFraction, false);
  measuredTask->parentMetric_ = parentMetric;
  measuredTask->task_ = std::move(task);
  return measuredTask;
}

void QENMeasuredTask::execute() {
  if (performanceMetric_ == nullptr) {
    if (task_) {
      task_();
    }
    return;
  }
  performanceMetric_->startMetric();
  if (const auto parent = parentMetric_.lock()) {
    parent->addChildMetric(performanceMetric_);
  }
  if (task_) {
    task_();
  }
  performanceMetric_->stopMetric();
}

void QENMeasuredTask::executeMeasuredTaskWithName(
    std::string name, double uploadFraction,
    const std::shared_ptr<QENPerformanceMetric>& parentMetric, const Task& task,
    const Completion& completion) {
  const auto metric = QENPerformanceMetric::initWithName(std::move(name), uploadFraction, false);
  metric->startMetric();
  if (parentMetric) {
    parentMetric->addChildMetric(metric);
  }
  // Not checked before the metric starts: the measurement is made either way, of nothing.
  QENParameterAssert(task != nullptr, "task",
                     "+[QENMeasuredTask "
                     "executeMeasuredTaskWithName:uploadFraction:parentMetric:task:completion:]");
  if (task) {
    task();
  }
  metric->stopMetric();
  if (completion) {
    completion(metric);
  }
}

std::uint32_t QENMeasuredTask::signpostNameForTaskName(const std::string& taskName) {
  if (&taskName == &QENMeasuredTaskAppStartupFacebook) {
    return 6;
  }
  if (&taskName == &QENMeasuredTaskAppStartupImageManager) {
    return 4;
  }
  return 0;
}
