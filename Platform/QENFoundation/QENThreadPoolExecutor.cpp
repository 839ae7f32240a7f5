#include "QENThreadPoolExecutor.h"

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

#include "QENCurrentExceptionDescription.h"
#include "QENFoundationDevLogger.h"

struct QENThreadPoolExecutor::State {
  State(std::size_t maximum, std::chrono::milliseconds timeout)
      : maximumThreadCount(std::max<std::size_t>(1, maximum)), idleTimeout(timeout) {}

  const std::size_t maximumThreadCount;
  const std::chrono::milliseconds idleTimeout;
  std::mutex mutex;
  std::condition_variable workAvailable;
  std::deque<std::function<void()>> pending;
  std::size_t threadCount = 0;
  std::size_t idleCount = 0;  // waiting workers; each takes at most one pending work when woken
  bool stopping = false;
};

namespace {

void runReportingExceptions(const std::function<void()>& work) {
#if defined(__cpp_exceptions)
  try {
    work();
  } catch (...) {
    QENFoundationDevLogger::sharedInstance().remote().logErrorWithMessage(
        "Work on the global queue threw: " + QENCurrentExceptionDescription(), true, 1,
        "QENThreadPoolExecutor", nullptr, __LINE__, __FILE__);
  }
#else
  work();
#endif
}

}  // namespace

QENThreadPoolExecutor::QENThreadPoolExecutor(std::size_t maximumThreadCount,
                                             std::chrono::milliseconds idleTimeout)
    : state_(std::make_shared<State>(maximumThreadCount, idleTimeout)) {}

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
    // Every idle worker may already be promised to earlier pending work.
    if (state_->pending.size() > state_->idleCount &&
        state_->threadCount < state_->maximumThreadCount) {
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
    state->workAvailable.wait_for(lock, state->idleTimeout,
                                  [&] { return !state->pending.empty() || state->stopping; });
    --state->idleCount;
    if (state->pending.empty()) {
      --state->threadCount;  // stopping, or idle for the whole timeout
      return;
    }
    std::function<void()> work = std::move(state->pending.front());
    state->pending.pop_front();
    lock.unlock();
    runReportingExceptions(work);
    work = nullptr;  // release what the work captured before waiting again
    lock.lock();
  }
}
