#include "QENDeepTreeTrampoline.h"

#include <deque>

namespace {

struct ThreadState {
  int depth = 0;
  std::deque<std::function<void()>> deferred;
};

ThreadState& threadState() {
  static thread_local ThreadState state;
  return state;
}

}  // namespace

bool QENDeepTreeTrampoline::enterLevel() {
  ThreadState& state = threadState();
  if (state.depth >= kDirectDepth) {
    return false;
  }
  ++state.depth;
  return true;
}

QENDeepTreeTrampoline::Level::Level() : outermost_(threadState().depth == 1) {}

QENDeepTreeTrampoline::Level::~Level() {
  ThreadState& state = threadState();
  if (--state.depth == 0) {
    state.deferred.clear();  // empty unless work threw out of the outermost call
  }
}

void QENDeepTreeTrampoline::defer(std::function<void()> work) {
  threadState().deferred.push_back(std::move(work));
}

void QENDeepTreeTrampoline::runDeferred() {
  ThreadState& state = threadState();
  while (!state.deferred.empty()) {
    std::function<void()> next = std::move(state.deferred.front());
    state.deferred.pop_front();
    next();
  }
}
