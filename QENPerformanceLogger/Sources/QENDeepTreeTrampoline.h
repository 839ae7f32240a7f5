#pragma once

#include <functional>
#include <utility>

// Runs work that nests as deep as a metric tree: a stop that stops the children, which stop
// theirs; a destructor that releases the children, which release theirs. Up to kDirectDepth
// levels a call runs at once, exactly as the plain nested call would, and costs a counter; below
// that it is queued, and the outermost call on the thread runs the queue before it returns. A
// chain of any depth is walked without exhausting the thread's stack, and a tree of ordinary depth
// is walked as before.
//
// Per thread; the queue is emptied, not run, if work throws out of the outermost call.
class QENDeepTreeTrampoline {
 public:
  static constexpr int kDirectDepth = 128;

  template <class Work>
  static void run(Work&& work) {
    if (!enterLevel()) {
      defer(std::function<void()>(std::forward<Work>(work)));
      return;
    }
    const Level level;
    work();
    if (level.isOutermost()) {
      runDeferred();
    }
  }

 private:
  // Leaves the level entered; leaving the outermost drops what is still queued.
  class Level {
   public:
    Level();
    ~Level();
    Level(const Level&) = delete;
    Level& operator=(const Level&) = delete;
    bool isOutermost() const noexcept { return outermost_; }

   private:
    bool outermost_;
  };

  static bool enterLevel();
  static void defer(std::function<void()> work);
  static void runDeferred();
};
