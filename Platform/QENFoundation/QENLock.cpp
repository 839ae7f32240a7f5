#include "QENLock.h"

namespace {

constexpr int kSpinsBeforeSleeping = 100;

// Tells the processor that this is a spin-wait loop: it yields the core's resources to a sibling
// hardware thread and avoids the memory-order flush when the awaited store arrives.
inline void relaxProcessor() noexcept {
#if defined(__x86_64__) || defined(__i386__)
  __builtin_ia32_pause();
#elif defined(__aarch64__) || defined(__arm__)
  asm volatile("yield" ::: "memory");
#endif
}

}  // namespace

bool QENLock::try_lock() noexcept {
  if (isHeldByCurrentThread()) {
    ++depth_;
    return true;
  }
  std::uint32_t state = state_.load(std::memory_order_relaxed);
  if ((state & kLockedBit) != 0 ||
      !state_.compare_exchange_strong(state, state | kLockedBit, std::memory_order_acquire,
                                      std::memory_order_relaxed)) {
    return false;
  }
  becomeOwner();
  return true;
}

void QENLock::wakeSleeper() noexcept {
  state_.notify_one();
}

void QENLock::acquireContended() noexcept {
  for (int spin = 0; spin < kSpinsBeforeSleeping; ++spin) {
    std::uint32_t state = state_.load(std::memory_order_relaxed);
    if ((state & kLockedBit) == 0 &&
        state_.compare_exchange_weak(state, state | kLockedBit, std::memory_order_acquire,
                                     std::memory_order_relaxed)) {
      return;
    }
    relaxProcessor();
  }
  // Counted as a sleeper until the lock is taken: every unlock meanwhile wakes one sleeper, and
  // a wait on a word that changed since it was read returns at once, so no wake-up is lost.
  std::uint32_t state = state_.fetch_add(kOneSleeper, std::memory_order_relaxed) + kOneSleeper;
  for (;;) {
    if ((state & kLockedBit) == 0) {
      if (state_.compare_exchange_weak(state, (state - kOneSleeper) | kLockedBit,
                                       std::memory_order_acquire, std::memory_order_relaxed)) {
        return;
      }
      continue;  // the word changed: look again
    }
    state_.wait(state, std::memory_order_relaxed);
    state = state_.load(std::memory_order_relaxed);
  }
}
