#pragma once

#include <functional>
#include <memory>

#include "QENExecutableTask.h"

// Runs a piece of start-up work and measures nothing: the stand-in for a QENMeasuredTask when
// the host does not want a task timed.
class QENUnmeasuredTask : public QENExecutableTask {
 public:
  using Task = std::function<void()>;

  // An empty task is reported; executing it then does nothing.
  static std::shared_ptr<QENUnmeasuredTask> initWithTask(Task task);

  void execute() override;

  const Task& task() const { return task_; }
  void setTask(Task task) { task_ = std::move(task); }

 private:
  Task task_;
};
