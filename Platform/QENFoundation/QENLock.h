#pragma once

#include <atomic>
#include <cstdint>

// A small labelled mutual-exclusion lock, usable with std::lock_guard and std::unique_lock.
//
// - Recursive: the thread that holds the lock may take it again (and must release it as often).
//   Metric trees are not checked for cycles, and a tree that contains a metric twice on one
//   path would otherwise deadlock its own thread when it is stopped.
// - Four bytes of state plus the owner; the uncontended lock and unlock are one atomic
//   read-modify-write each, and a contended waiter sleeps on the state word (std::atomic::wait,
//   a futex on Linux) after a short spin.
// - The label names the lock in diagnostics. It is not copied: pass a string that lives as long
//   as the lock (a literal).
//
// A host on another platform may back it with its own primitive (os_unfair_lock on Apple
// systems) as long as the recursive behaviour is kept.
class QENLock {
 public:
  explicit QENLock(const char* label) noexcept : label_(label) {}
  QENLock(const QENLock&) = delete;
  QENLock& operator=(const QENLock&) = delete;

  // The uncontended paths are inline: a metric takes its lock on every start, stop and query.
  void lock() noexcept {
    if (isHeldByCurrentThread()) {
      ++depth_;
      return;
    }
    std::uint32_t expected = kUnlocked;
    if (!state_.compare_exchange_strong(expected, kLocked, std::memory_order_acquire,
                                        std::memory_order_relaxed)) {
      acquireContended();
    }
    becomeOwner();
  }

  bool try_lock() noexcept;

  void unlock() noexcept {
    if (--depth_ > 0) {
      return;
    }
    owner_.store(nullptr, std::memory_order_relaxed);
    if (state_.exchange(kUnlocked, std::memory_order_release) == kLockedWithWaiters) {
      wakeWaiter();
    }
  }

  const char* label() const noexcept { return label_; }

 private:
  enum State : std::uint32_t { kUnlocked = 0, kLocked = 1, kLockedWithWaiters = 2 };

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
  void wakeWaiter() noexcept;

  static inline thread_local char threadIdentity_;

  std::atomic<std::uint32_t> state_{kUnlocked};
  // The address of a thread-local of the owning thread; cheaper to read than a thread id.
  std::atomic<const void*> owner_{nullptr};
  std::uint32_t depth_ = 0;  // touched only by the owner
  const char* label_;
};
