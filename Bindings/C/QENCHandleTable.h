#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

// What a C handle names.
enum class QENCHandleKind : std::uint8_t { kMetric = 1, kTrace, kSpool, kReporter };

// The objects the C interface has handed out, by id. An id holds a slot's index and the slot's
// generation, which its release advances, so an id once released never finds an object again;
// nor does an id of another kind, or zero. Lookups copy the object's shared_ptr, so a release
// on another thread cannot free an object under a call that found it.
class QENCHandleTable {
 public:
  static QENCHandleTable& shared();

  std::uint64_t insert(QENCHandleKind kind, std::shared_ptr<void> object);
  // Null when the id names no live object of that kind.
  std::shared_ptr<void> find(std::uint64_t id, QENCHandleKind kind) const;
  // Takes the object out and returns it (so that the caller destroys it outside the table's
  // lock); null as for find.
  std::shared_ptr<void> remove(std::uint64_t id, QENCHandleKind kind);
  // Live handles of that kind.
  std::size_t count(QENCHandleKind kind) const;

 private:
  struct Slot {
    std::uint32_t generation = 1;
    QENCHandleKind kind{};
    std::shared_ptr<void> object;
  };

  // The slot an id names while it is live, else null. With mutex_ held.
  const Slot* live(std::uint64_t id, QENCHandleKind kind) const;

  mutable std::mutex mutex_;
  std::vector<Slot> slots_;
  std::vector<std::uint32_t> freeSlots_;
};
