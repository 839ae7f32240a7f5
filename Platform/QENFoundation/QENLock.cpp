#include "QENLock.h"

namespace {
constexpr int kSpinsBeforeSleeping = 100;
}  // namespace

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
  becomeOwner();
  return true;
}

void QENLock::wakeWaiter() noexcept {
  state_.notify_one();
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
