#pragma once

#include <atomic>
#include <thread>
#include <utility>

// A std::shared_ptr or std::weak_ptr that any thread may load and store at any time.
//
// Used in place of std::atomic<std::shared_ptr<T>>, whose libstdc++ 12 implementation hides
// its internal lock from ThreadSanitizer (every concurrent load and store is reported as a data
// race). The critical sections are a pointer copy each, so a spin on an atomic flag that yields
// while it waits serves; the value a store replaces is released after the flag, so no
// destructor runs under it.
template <class Reference>
class QENAtomicReference {
 public:
  QENAtomicReference() = default;
  explicit QENAtomicReference(Reference value) : value_(std::move(value)) {}
  QENAtomicReference(const QENAtomicReference&) = delete;
  QENAtomicReference& operator=(const QENAtomicReference&) = delete;

  Reference load() const {
    lock();
    Reference copy = value_;
    unlock();
    return copy;
  }

  // Whether the held reference and `other` (a shared or weak pointer) share one owner, without
  // copying the held one: no reference count changes, unlike a load.
  template <class Other>
  bool sharesOwnerWith(const Other& other) const {
    lock();
    const bool shared = !value_.owner_before(other) && !other.owner_before(value_);
    unlock();
    return shared;
  }

  void store(Reference value) {
    lock();
    value_.swap(value);
    unlock();
  }

 private:
  void lock() const {
    while (busy_.test_and_set(std::memory_order_acquire)) {
      std::this_thread::yield();
    }
  }
  void unlock() const { busy_.clear(std::memory_order_release); }

  mutable std::atomic_flag busy_;
  Reference value_;
};
