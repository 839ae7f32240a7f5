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

  void lock() noexcept;
  bool try_lock() noexcept;
  void unlock() noexcept;

  const char* label() const noexcept { return label_; }

 private:
  enum State : std::uint32_t { kUnlocked = 0, kLocked = 1, kLockedWithWaiters = 2 };

  bool isHeldByCurrentThread() const noexcept;
  void acquireContended() noexcept;
  static const void* currentThreadIdentity() noexcept;

  std::atomic<std::uint32_t> state_{kUnlocked};
  // The address of a thread-local of the owning thread; cheaper to read than a thread id.
  std::atomic<const void*> owner_{nullptr};
  std::uint32_t depth_ = 0;  // touched only by the owner
  const char* label_;
};
