#pragma once

#include <functional>
#include <memory>

#include "QENExecutor.h"

// The global concurrent queue of default priority: where the library runs work that must not
// run on the caller's thread (a metric's completion callbacks).
//
// By default it submits to a QENThreadPoolExecutor of up to 64 workers, started when work finds
// no idle worker and retired after ten idle seconds; the executor lives as long as the process. A
// host installs its own executor with setExecutor; work already submitted stays with the executor
// it went to.
class QENGlobalQueue {
 public:
  static void dispatchAsync(std::function<void()> work);

  // Installs the executor that later work goes to; null restores the default executor.
  static void setExecutor(std::shared_ptr<QENExecutor> executor);
  static std::shared_ptr<QENExecutor> executor();
};
