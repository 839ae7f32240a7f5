#include "QENDeepTreeTrampoline.h"

#include <deque>
#include <utility>

namespace {

struct ThreadState {
  int depth = 0;
  std::deque<std::function<void()>> queued;
};

ThreadState& threadState() {
  static thread_local ThreadState state;
  return state;
}

// One level of nesting for its lifetime; leaving the outermost level by an exception drops the
// queue, so that no later walk runs what a failed one left.
class Level {
 public:
  explicit Level(ThreadState& state) : state_(state) { ++state_.depth; }
  ~Level() {
    if (--state_.depth == 0) {
      state_.queued.clear();
    }
  }
  Level(const Level&) = delete;
  Level& operator=(const Level&) = delete;

 private:
  ThreadState& state_;
};

}  // namespace

void QENDeepTreeTrampoline::run(std::function<void()> work) {
  ThreadState& state = threadState();
  if (state.depth >= kDirectDepth) {
    state.queued.push_back(std::move(work));
    return;
  }
  const bool outermost = state.depth == 0;
  const Level level(state);
  work();
  work = nullptr;  // what it owned goes now, within this level
  while (outermost && !state.queued.empty()) {
    std::function<void()> next = std::move(state.queued.front());
    state.queued.pop_front();
    next();
  }
}
