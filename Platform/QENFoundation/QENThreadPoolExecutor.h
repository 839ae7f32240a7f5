#pragma once

#include <chrono>
#include <cstddef>
#include <memory>

#include "QENExecutor.h"

// The default executor of the global queue: a pool of worker threads started lazily. Work that
// arrives when no idle worker is left to take it gets a new worker, up to a maximum far above the
// core count, so that work which waits for other work (a completion callback waiting for
// another) never starves. A worker idle for `idleTimeout` retires.
//
// Work submitted from a host thread therefore always runs on a different thread; work submitted
// from a worker runs on some worker, never inside the submitting task. Work that throws is
// reported through the developer logger; the worker and the pool go on.
//
// Destroying the executor lets its workers finish the work already submitted and then exit; it
// does not wait for them, so it may happen on one of its own workers.
class QENThreadPoolExecutor final : public QENExecutor {
 public:
  static constexpr std::chrono::milliseconds kDefaultIdleTimeout{10000};

  explicit QENThreadPoolExecutor(std::size_t maximumThreadCount,
                                 std::chrono::milliseconds idleTimeout = kDefaultIdleTimeout);
  ~QENThreadPoolExecutor() override;

  void execute(std::function<void()> work) override;

  // Worker threads alive now.
  std::size_t threadCount() const;

 private:
  struct State;
  static void runWorker(const std::shared_ptr<State>& state);

  std::shared_ptr<State> state_;
};
