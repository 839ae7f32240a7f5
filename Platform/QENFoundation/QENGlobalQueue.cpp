#include "QENGlobalQueue.h"

#include <algorithm>
#include <thread>
#include <utility>

#include "QENAtomicReference.h"
#include "QENThreadPoolExecutor.h"

namespace {

const std::shared_ptr<QENExecutor>& defaultExecutor() {
  // Kept for the life of the process, like the platform queue it stands in for.
  static const auto* const executor = new std::shared_ptr<QENExecutor>(
      std::make_shared<QENThreadPoolExecutor>(std::max(2u, std::thread::hardware_concurrency())));
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
