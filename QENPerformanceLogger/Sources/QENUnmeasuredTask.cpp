#include "QENUnmeasuredTask.h"

#include "QENAssert.h"

std::shared_ptr<QENUnmeasuredTask> QENUnmeasuredTask::initWithTask(Task task) {
  QENParameterAssert(task != nullptr, "task", "-[QENUnmeasuredTask initWithTask:]");
  auto unmeasuredTask = std::make_shared<QENUnmeasuredTask>();
  unmeasuredTask->task_ = std::move(task);
  return unmeasuredTask;
}

void QENUnmeasuredTask::execute() {
  if (task_) {
    task_();
  }
}
