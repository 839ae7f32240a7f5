#pragma once

#include <cstddef>
#include <memory>

#include "QENExecutor.h"

// The default executor of the global queue: a pool of worker threads started lazily, one more
// each time work arrives and no worker is idle, up to a maximum. Work submitted from a host
// thread therefore always runs on a different thread; work submitted from a worker runs on some
// worker once the submitting task has returned, never inside it.
//
// Destroying the executor lets its workers finish the work already submitted and then exit; it
// does not wait for them, so it may happen on one of its own workers.
class QENThreadPoolExecutor final : public QENExecutor {
 public:
  explicit QENThreadPoolExecutor(std::size_t maximumThreadCount);
  ~QENThreadPoolExecutor() override;

  void execute(std::function<void()> work) override;

  // Worker threads started so far.
  std::size_t threadCount() const;

 private:
  struct State;
  static void runWorker(const std::shared_ptr<State>& state);

  std::shared_ptr<State> state_;
};
