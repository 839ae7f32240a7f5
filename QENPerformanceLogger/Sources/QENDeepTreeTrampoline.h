#pragma once

#include <functional>

// Runs work that nests as deep as a metric tree: a stop that stops the children, which stop
// theirs; a destructor that releases the children, which release theirs. Up to kDirectDepth
// levels a call runs at once, exactly as the plain nested call would; below that it is queued, and
// the outermost call on the thread runs the queue before it returns. A chain of any depth is
// walked without exhausting the thread's stack, and a tree of ordinary depth is walked as before.
//
// Per thread; the queue is emptied, not run, if work throws out of the outermost call.
class QENDeepTreeTrampoline {
 public:
  static constexpr int kDirectDepth = 128;

  static void run(std::function<void()> work);
};
