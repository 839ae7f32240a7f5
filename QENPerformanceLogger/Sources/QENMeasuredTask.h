#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "QENExecutableTask.h"
#include "QENPerformanceMetric.h"

// Names of the host's start-up tasks. Each is one object: signpostNameForTaskName tells them
// apart by identity, not by text.
extern const std::string QENMeasuredTaskAppStartupCrashReporter;
extern const std::string QENMeasuredTaskAppStartupHomeFeed;
extern const std::string QENMeasuredTaskAppStartupHomeFeedCached;
extern const std::string QENMeasuredTaskAppStartupImageManager;
extern const std::string QENMeasuredTaskAppStartupSharedClient;
extern const std::string QENMeasuredTaskAppStartupFacebook;
extern const std::string QENMeasuredTaskAppStartupVersioningAndExperience;

// Runs a piece of start-up work inside a metric of its own, attached as a child of a parent
// metric (a cold-start trace, say) that the task does not keep alive.
class QENMeasuredTask : public QENExecutableTask {
 public:
  using Task = std::function<void()>;
  using Completion = std::function<void(const std::shared_ptr<QENPerformanceMetric>&)>;

  // Makes the task's metric (not started; it never adopts metrics that start while it runs).
  // An absent name or task is reported; the task is built all the same.
  static std::shared_ptr<QENMeasuredTask> initWithName(
      std::optional<std::string> metricName, double uploadFraction,
      const std::shared_ptr<QENPerformanceMetric>& parentMetric, Task task);

  // Starts the metric, attaches it to the parent if the parent still exists, runs the task on
  // this thread and stops the metric.
  void execute() override;

  // Runs `task` at once in a new metric under `parentMetric`, then hands the finished metric to
  // `completion`. An empty task is skipped: the metric measures nothing.
  static void executeMeasuredTaskWithName(std::string name, double uploadFraction,
                                          const std::shared_ptr<QENPerformanceMetric>& parentMetric,
                                          const Task& task, const Completion& completion = nullptr);

  // 6 for QENMeasuredTaskAppStartupFacebook, 4 for QENMeasuredTaskAppStartupImageManager, 0 for
  // any other string, even one with the same text.
  static std::uint32_t signpostNameForTaskName(const std::string& taskName);

  const std::shared_ptr<QENPerformanceMetric>& performanceMetric() const {
    return performanceMetric_;
  }
  void setPerformanceMetric(std::shared_ptr<QENPerformanceMetric> metric) {
    performanceMetric_ = std::move(metric);
  }
  const Task& task() const { return task_; }
  void setTask(Task task) { task_ = std::move(task); }
  std::shared_ptr<QENPerformanceMetric> parentMetric() const { return parentMetric_.lock(); }
  void setParentMetric(const std::shared_ptr<QENPerformanceMetric>& parent) {
    parentMetric_ = parent;
  }

 private:
  std::shared_ptr<QENPerformanceMetric> performanceMetric_;
  Task task_;
  std::weak_ptr<QENPerformanceMetric> parentMetric_;
};
