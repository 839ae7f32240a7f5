#pragma once

#include <atomic>
#include <cstdint>

#include "QENThreadSafetyAnnotations.h"

// A small labelled mutual-exclusion lock, usable with std::lock_guard and std::unique_lock, and
// with QENLockGuard where clang's thread-safety analysis is to check what it guards.
//
// - Recursive: the thread that holds the lock may take it again (and must release it as often).
//   Work done under a metric's lock (stopping its children, for one) may read that metric again
//   on the same thread.
// - Four bytes of state plus the owner; the uncontended lock and unlock are one atomic
//   read-modify-write each. A contended waiter re-reads the word a few times, then counts itself in
//   the state word and sleeps on it (std::atomic::wait, a futex on Linux). An unlock wakes a
//   sleeper only when the word counts one: once contention is over, unlocking costs no system call.
// - The label names the lock in diagnostics. It is not copied: pass a string that lives as long
//   as the lock (a literal).
//
// A host on another platform may back it with its own primitive (os_unfair_lock on Apple
// systems) as long as the recursive behaviour is kept.
class QEN_CAPABILITY("mutex") QENLock {
 public:
  explicit QENLock(const char* label) noexcept : label_(label) {}
  QENLock(const QENLock&) = delete;
  QENLock& operator=(const QENLock&) = delete;

  // The uncontended paths are inline: a metric takes its lock on every start, stop and query.
  void lock() noexcept QEN_ACQUIRE() QEN_NO_THREAD_SAFETY_ANALYSIS {
    if (isHeldByCurrentThread()) {
      ++depth_;
      return;
    }
    std::uint32_t expected = 0;
    if (!state_.compare_exchange_strong(expected, kLockedBit, std::memory_order_acquire,
                                        std::memory_order_relaxed)) {
      acquireContended();
    }
    becomeOwner();
  }

  bool try_lock() noexcept QEN_TRY_ACQUIRE(true);

  void unlock() noexcept QEN_RELEASE() QEN_NO_THREAD_SAFETY_ANALYSIS {
    if (--depth_ > 0) {
      return;
    }
    owner_.store(nullptr, std::memory_order_relaxed);
    if (state_.fetch_sub(kLockedBit, std::memory_order_release) >= kOneSleeper) {
      wakeSleeper();
    }
  }

  const char* label() const noexcept { return label_; }

 private:
  // The state word: whether the lock is held (the low bit) and how many waiters sleep or are
  // about to sleep on the word (the bits above it). One word, so that a sleeper cannot register
  // between an unlock's look at the count and its release.
  static constexpr std::uint32_t kLockedBit = 1;
  static constexpr std::uint32_t kOneSleeper = 2;

  static const void* currentThreadIdentity() noexcept { return &threadIdentity_; }
  // Only the owner ever stores its own identity, so a relaxed read that sees it is reliable.
  bool isHeldByCurrentThread() const noexcept {
    return owner_.load(std::memory_order_relaxed) == currentThreadIdentity();
  }
  void becomeOwner() noexcept {
    owner_.store(currentThreadIdentity(), std::memory_order_relaxed);
    depth_ = 1;
  }
  void acquireContended() noexcept;
  void wakeSleeper() noexcept;

  static inline thread_local char threadIdentity_;

  std::atomic<std::uint32_t> state_{0};
  // The address of a thread-local of the owning thread; cheaper to read than a thread id.
  std::atomic<const void*> owner_{nullptr};
  std::uint32_t depth_ = 0;  // touched only by the owner
  const char* label_;
};
