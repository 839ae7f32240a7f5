#include "QENLock.h"

namespace {
constexpr int kSpinsBeforeSleeping = 100;
thread_local char threadIdentity;
}  // namespace

const void* QENLock::currentThreadIdentity() noexcept {
  return &threadIdentity;
}

bool QENLock::isHeldByCurrentThread() const noexcept {
  // Only the owner ever stores its own id, so a relaxed read that sees it is reliable.
  return owner_.load(std::memory_order_relaxed) == currentThreadIdentity();
}

void QENLock::lock() noexcept {
  if (isHeldByCurrentThread()) {
    ++depth_;
    return;
  }
  std::uint32_t expected = kUnlocked;
  if (!state_.compare_exchange_strong(expected, kLocked, std::memory_order_acquire,
                                      std::memory_order_relaxed)) {
    acquireContended();
  }
  owner_.store(currentThreadIdentity(), std::memory_order_relaxed);
  depth_ = 1;
}

bool QENLock::try_lock() noexcept {
  if (isHeldByCurrentThread()) {
    ++depth_;
    return true;
  }
  std::uint32_t expected = kUnlocked;
  if (!state_.compare_exchange_strong(expected, kLocked, std::memory_order_acquire,
                                      std::memory_order_relaxed)) {
    return false;
  }
  owner_.store(currentThreadIdentity(), std::memory_order_relaxed);
  depth_ = 1;
  return true;
}

void QENLock::unlock() noexcept {
  if (--depth_ > 0) {
    return;
  }
  owner_.store(nullptr, std::memory_order_relaxed);
  if (state_.exchange(kUnlocked, std::memory_order_release) == kLockedWithWaiters) {
    state_.notify_one();
  }
}

void QENLock::acquireContended() noexcept {
  for (int spin = 0; spin < kSpinsBeforeSleeping; ++spin) {
    std::uint32_t expected = kUnlocked;
    if (state_.load(std::memory_order_relaxed) == kUnlocked &&
        state_.compare_exchange_weak(expected, kLocked, std::memory_order_acquire,
                                     std::memory_order_relaxed)) {
      return;
    }
  }
  // From here on the lock is taken in the "with waiters" state, so that the eventual unlock
  // wakes whoever else went to sleep meanwhile.
  while (state_.exchange(kLockedWithWaiters, std::memory_order_acquire) != kUnlocked) {
    state_.wait(kLockedWithWaiters, std::memory_order_relaxed);
  }
}
