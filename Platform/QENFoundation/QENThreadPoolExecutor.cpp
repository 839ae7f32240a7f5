#include "QENThreadPoolExecutor.h"

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <utility>

struct QENThreadPoolExecutor::State {
  explicit State(std::size_t maximum) : maximumThreadCount(std::max<std::size_t>(1, maximum)) {}

  const std::size_t maximumThreadCount;
  std::mutex mutex;
  std::condition_variable workAvailable;
  std::deque<std::function<void()>> pending;
  std::size_t threadCount = 0;
  std::size_t idleCount = 0;
  bool stopping = false;
};

QENThreadPoolExecutor::QENThreadPoolExecutor(std::size_t maximumThreadCount)
    : state_(std::make_shared<State>(maximumThreadCount)) {}

QENThreadPoolExecutor::~QENThreadPoolExecutor() {
  {
    const std::lock_guard guard(state_->mutex);
    state_->stopping = true;
  }
  state_->workAvailable.notify_all();
}

void QENThreadPoolExecutor::execute(std::function<void()> work) {
  bool startThread = false;
  {
    const std::lock_guard guard(state_->mutex);
    state_->pending.push_back(std::move(work));
    if (state_->idleCount == 0 && state_->threadCount < state_->maximumThreadCount) {
      ++state_->threadCount;
      startThread = true;
    }
  }
  if (startThread) {
    // Each worker shares the state, so the executor object may go away before its workers do.
    std::thread(runWorker, state_).detach();
  } else {
    state_->workAvailable.notify_one();
  }
}

std::size_t QENThreadPoolExecutor::threadCount() const {
  const std::lock_guard guard(state_->mutex);
  return state_->threadCount;
}

void QENThreadPoolExecutor::runWorker(const std::shared_ptr<State>& state) {
  std::unique_lock lock(state->mutex);
  for (;;) {
    ++state->idleCount;
    state->workAvailable.wait(lock, [&] { return !state->pending.empty() || state->stopping; });
    --state->idleCount;
    if (state->pending.empty()) {
      --state->threadCount;
      return;
    }
    std::function<void()> work = std::move(state->pending.front());
    state->pending.pop_front();
    lock.unlock();
    work();
    work = nullptr;  // release what the work captured before waiting again
    lock.lock();
  }
}
