#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>

// What a C handle names.
enum class QENCHandleKind : std::uint8_t {
  kMetric = 1,
  kTrace,
  kSpool,
  kReporter,
  kReporterOptions,
  kScreenDisplay
};

// The objects the C interface has handed out, by id. An id holds a slot's index and the slot's
// generation, which moves on twice in each life of the slot: to an odd number when an object is
// put in, to an even one the moment it is released. Only an odd generation finds an object, so an
// id once released never finds one again, nor does any id (forged, or the one the slot's next
// object will get) while the released object is still on its way out; nor an id of another kind,
// or zero. A slot whose generation comes round to zero (after 2^31 objects) would hand out its
// first ids again: it is retired instead.
//
// Every call through a handle looks it up, so a lookup takes no lock: it pins the slot (one
// atomic add on the slot's own state) and unpins it when done. A release on another thread
// advances the generation at once, but the object goes only when the last pin does, so a release
// never frees an object under a call that found it. Slots live in chunks that never move or go,
// and free slots wait on a lock-free list; only growing the table takes a lock.
class QENCHandleTable {
  struct Slot;

 public:
  // A found object, kept alive while the pin lives.
  class Pin {
   public:
    Pin() = default;
    Pin(Pin&& other) noexcept;
    Pin& operator=(Pin&&) = delete;
    ~Pin();

    explicit operator bool() const noexcept { return object_ != nullptr; }
    void* object() const noexcept { return object_; }
    // A reference that outlives the pin.
    std::shared_ptr<void> shared() const;

   private:
    friend class QENCHandleTable;
    Pin(Slot* slot, void* object) noexcept : slot_(slot), object_(object) {}
    Slot* slot_ = nullptr;
    void* object_ = nullptr;
  };

  static QENCHandleTable& shared();

  // Zero, and the object dropped, once all kCapacity slots are live.
  std::uint64_t insert(QENCHandleKind kind, std::shared_ptr<void> object);
  // An empty pin when the id names no live object of that kind.
  Pin find(std::uint64_t id, QENCHandleKind kind);
  // False when the id names no live object of that kind. The object goes now, on this thread,
  // unless a call on another thread still has it pinned; then it goes when that call ends.
  bool remove(std::uint64_t id, QENCHandleKind kind);
  // Live handles of that kind, counting a released one until the last call that found it ends.
  std::size_t count(QENCHandleKind kind) const;

 private:
  // One table, the shared one: a pin unpins there.
  QENCHandleTable() = default;
  // Lets a test bring a slot to its last generation without 2^31 lives.
  friend struct QENCHandleTableTestAccess;

  // A slot's state: its generation in the high half (odd while an object lives in the slot); below
  // it a flag set when a release found the slot pinned (the last unpin then frees the object),
  // and the number of pins.
  static constexpr std::uint64_t kPendingFree = std::uint64_t{1} << 31;
  static constexpr std::uint64_t kPins = kPendingFree - 1;
  static constexpr std::uint64_t kGeneration = std::uint64_t{1} << 32;

  struct Slot {
    std::atomic<std::uint64_t> state{0};
    std::atomic<QENCHandleKind> kind{};  // none while free; a generation ahead tells released
    std::atomic<void*> object{nullptr};
    std::shared_ptr<void> owner;  // written only by the slot's inserter and its one freer
    std::atomic<std::uint32_t> nextFree{0};
    std::uint32_t index = 0;
  };
  // Chunk c holds kFirstChunk << c slots: 2^32 - 64 in all, as many as an id's low half can name.
  static constexpr std::uint32_t kFirstChunk = 64;
  static constexpr std::size_t kChunks = 26;
  static constexpr std::uint64_t kCapacity = (std::uint64_t{kFirstChunk} << kChunks) - kFirstChunk;

  Slot* slotAt(std::uint32_t index) const;
  // A free slot's index; kCapacity when none is left.
  std::uint64_t takeFreeSlot();
  void unpin(Slot& slot);
  void free(Slot& slot);

  std::array<std::atomic<Slot*>, kChunks> chunks_{};
  std::atomic<std::uint32_t> slotCount_{0};
  std::atomic<std::uint64_t> freeHead_{0};  // an ABA tag above the free slot's index plus one
  std::mutex growing_;
};
