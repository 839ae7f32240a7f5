#pragma once

#include "QENLock.h"
#include "QENThreadSafetyAnnotations.h"

// Holds a QENLock for its scope, as std::lock_guard does, in a form clang's thread-safety
// analysis follows: a field guarded by the lock may be touched while the guard lives.
class QEN_SCOPED_CAPABILITY QENLockGuard {
 public:
  explicit QENLockGuard(QENLock& lock) noexcept QEN_ACQUIRE(lock) : lock_(lock) { lock_.lock(); }
  ~QENLockGuard() QEN_RELEASE() { lock_.unlock(); }
  QENLockGuard(const QENLockGuard&) = delete;
  QENLockGuard& operator=(const QENLockGuard&) = delete;

 private:
  QENLock& lock_;
};
