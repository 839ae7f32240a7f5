#pragma once

#include <functional>

// Runs submitted work asynchronously. The global queue submits to one executor; a host that has
// its own thread pool (or Grand Central Dispatch, or an Android executor) adapts it to this
// interface and installs it with QENGlobalQueue::setExecutor.
//
// Contract: `execute` returns without running the work; the work runs later on a thread of the
// executor's, never inline on the submitting call. Work is run exactly once and never dropped.
class QENExecutor {
 public:
  virtual ~QENExecutor() = default;
  virtual void execute(std::function<void()> work) = 0;
};
