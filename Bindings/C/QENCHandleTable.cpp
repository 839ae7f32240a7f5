#include "QENCHandleTable.h"

#include <bit>
#include <utility>

namespace {

std::uint64_t idOf(std::uint32_t index, std::uint64_t state) {
  return (state & ~std::uint64_t{0xFFFFFFFF}) | (std::uint64_t{index} + 1);
}

bool holdsObject(std::uint64_t state) {
  return ((state >> 32) & 1) != 0;
}

}  // namespace

QENCHandleTable::Pin::Pin(Pin&& other) noexcept
    : slot_(std::exchange(other.slot_, nullptr)), object_(std::exchange(other.object_, nullptr)) {}

QENCHandleTable::Pin::~Pin() {
  if (slot_ != nullptr) {
    QENCHandleTable::shared().unpin(*slot_);
  }
}

std::shared_ptr<void> QENCHandleTable::Pin::shared() const {
  return object_ != nullptr ? slot_->owner : nullptr;  // the owner stays while pinned
}

QENCHandleTable& QENCHandleTable::shared() {
  static auto* const table = new QENCHandleTable();  // never destroyed: hosts release at exit
  return *table;
}

QENCHandleTable::Slot* QENCHandleTable::slotAt(std::uint32_t index) const {
  const std::uint64_t position = std::uint64_t{index} + kFirstChunk;
  const int chunk = std::bit_width(position) - std::bit_width(kFirstChunk);
  Slot* const slots = chunks_[static_cast<std::size_t>(chunk)].load(std::memory_order_acquire);
  return &slots[position - (std::uint64_t{kFirstChunk} << chunk)];
}

std::uint64_t QENCHandleTable::takeFreeSlot() {
  std::uint64_t head = freeHead_.load(std::memory_order_acquire);
  while ((head & 0xFFFFFFFF) != 0) {
    const std::uint32_t index = static_cast<std::uint32_t>(head & 0xFFFFFFFF) - 1;
    const std::uint64_t next = (head & ~std::uint64_t{0xFFFFFFFF}) + kGeneration +
                               slotAt(index)->nextFree.load(std::memory_order_relaxed);
    if (freeHead_.compare_exchange_weak(head, next, std::memory_order_acquire)) {
      return index;
    }
  }
  const std::lock_guard guard(growing_);
  const std::uint32_t index = slotCount_.load(std::memory_order_relaxed);
  if (index == kCapacity) {
    return kCapacity;
  }
  const std::uint64_t position = std::uint64_t{index} + kFirstChunk;
  if (std::has_single_bit(position)) {  // the first slot of a new chunk
    const int chunk = std::bit_width(position) - std::bit_width(kFirstChunk);
    auto* slots = new Slot[position];  // kFirstChunk << chunk; never freed
    for (std::uint32_t offset = 0; offset < position; ++offset) {
      slots[offset].index = index + offset;
    }
    chunks_[static_cast<std::size_t>(chunk)].store(slots, std::memory_order_release);
  }
  slotCount_.store(index + 1, std::memory_order_release);
  return index;
}

std::uint64_t QENCHandleTable::insert(QENCHandleKind kind, std::shared_ptr<void> object) {
  const std::uint64_t index = takeFreeSlot();
  if (index == kCapacity) {
    return 0;
  }
  Slot& slot = *slotAt(static_cast<std::uint32_t>(index));
  slot.object.store(object.get(), std::memory_order_relaxed);
  slot.owner = std::move(object);
  slot.kind.store(kind, std::memory_order_release);
  // Only now may an id find it: the generation turns odd after the object is in place.
  const std::uint64_t live = slot.state.fetch_add(kGeneration, std::memory_order_acq_rel);
  return idOf(slot.index, live + kGeneration);
}

QENCHandleTable::Pin QENCHandleTable::find(std::uint64_t id, QENCHandleKind kind) {
  const std::uint64_t indexPlusOne = id & 0xFFFFFFFF;
  if (indexPlusOne == 0 || indexPlusOne > slotCount_.load(std::memory_order_acquire)) {
    return {};
  }
  Slot& slot = *slotAt(static_cast<std::uint32_t>(indexPlusOne - 1));
  const std::uint64_t state = slot.state.fetch_add(1, std::memory_order_acquire);
  Pin pin(&slot, nullptr);  // unpins however this ends
  if (holdsObject(state) && idOf(slot.index, state) == id &&
      slot.kind.load(std::memory_order_acquire) == kind) {
    pin.object_ = slot.object.load(std::memory_order_relaxed);
  }
  return pin;
}

void QENCHandleTable::unpin(Slot& slot) {
  std::uint64_t state = slot.state.load(std::memory_order_relaxed);
  std::uint64_t next;
  do {
    next = state - 1;
    if ((state & kPins) == 1) {
      next &= ~kPendingFree;  // the last pin of a released slot frees it, once
    }
  } while (!slot.state.compare_exchange_weak(state, next, std::memory_order_acq_rel));
  if ((state & kPins) == 1 && (state & kPendingFree) != 0) {
    free(slot);
  }
}

bool QENCHandleTable::remove(std::uint64_t id, QENCHandleKind kind) {
  const std::uint64_t indexPlusOne = id & 0xFFFFFFFF;
  if (indexPlusOne == 0 || indexPlusOne > slotCount_.load(std::memory_order_acquire)) {
    return false;
  }
  Slot& slot = *slotAt(static_cast<std::uint32_t>(indexPlusOne - 1));
  std::uint64_t state = slot.state.load(std::memory_order_acquire);
  std::uint64_t next;
  do {
    if (!holdsObject(state) || idOf(slot.index, state) != id ||
        slot.kind.load(std::memory_order_acquire) != kind) {
      return false;
    }
    next = state + kGeneration;
    if ((state & kPins) != 0) {
      next |= kPendingFree;
    }
  } while (!slot.state.compare_exchange_weak(state, next, std::memory_order_acq_rel));
  if ((state & kPins) == 0) {
    free(slot);
  }
  return true;
}

// Only here, by the slot's one freer, and not in remove: once the last pin goes, the slot may be
// taken again at once, and a remove still finishing would clear its next object's kind.
void QENCHandleTable::free(Slot& slot) {
  std::shared_ptr<void> object = std::move(slot.owner);
  slot.object.store(nullptr, std::memory_order_relaxed);
  slot.kind.store(QENCHandleKind{}, std::memory_order_relaxed);
  if ((slot.state.load(std::memory_order_relaxed) >> 32) == 0) {
    return;  // its generation wrapped: retired, never on the free list again
  }
  std::uint64_t head = freeHead_.load(std::memory_order_relaxed);
  do {
    slot.nextFree.store(static_cast<std::uint32_t>(head & 0xFFFFFFFF), std::memory_order_relaxed);
  } while (!freeHead_.compare_exchange_weak(
      head, (head & ~std::uint64_t{0xFFFFFFFF}) + kGeneration + slot.index + 1,
      std::memory_order_release, std::memory_order_relaxed));
}  // the object goes here, with no slot or lock held

std::size_t QENCHandleTable::count(QENCHandleKind kind) const {
  std::size_t live = 0;
  const std::uint32_t slots = slotCount_.load(std::memory_order_acquire);
  for (std::uint32_t index = 0; index < slots; ++index) {
    live += slotAt(index)->kind.load(std::memory_order_relaxed) == kind ? 1 : 0;
  }
  return live;
}
