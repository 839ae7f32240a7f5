#include "QENGlobalQueue.h"

#include <cstddef>
#include <utility>

#include "QENAtomicReference.h"
#include "QENThreadPoolExecutor.h"

namespace {

// Like the platform queues it stands in for, it grows to dozens of threads when work waits for
// other work, whatever the core count, and shrinks again when idle.
constexpr std::size_t kMaximumWorkerCount = 64;

const std::shared_ptr<QENExecutor>& defaultExecutor() {
  // Kept for the life of the process, like the platform queue it stands in for.
  static const auto* const executor = new std::shared_ptr<QENExecutor>(
      std::make_shared<QENThreadPoolExecutor>(kMaximumWorkerCount));
  return *executor;
}

QENAtomicReference<std::shared_ptr<QENExecutor>>& installedExecutor() {
  static auto* const executor = new QENAtomicReference<std::shared_ptr<QENExecutor>>();
  return *executor;
}

}  // namespace

void QENGlobalQueue::dispatchAsync(std::function<void()> work) {
  executor()->execute(std::move(work));
}

void QENGlobalQueue::setExecutor(std::shared_ptr<QENExecutor> executor) {
  installedExecutor().store(std::move(executor));
}

std::shared_ptr<QENExecutor> QENGlobalQueue::executor() {
  std::shared_ptr<QENExecutor> installed = installedExecutor().load();
  return installed ? installed : defaultExecutor();
}
