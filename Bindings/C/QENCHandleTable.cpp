#include "QENCHandleTable.h"

#include <algorithm>
#include <utility>

namespace {

std::uint64_t idOf(std::uint32_t index, std::uint32_t generation) {
  return (std::uint64_t{generation} << 32) | (std::uint64_t{index} + 1);
}

}  // namespace

QENCHandleTable& QENCHandleTable::shared() {
  static auto* const table = new QENCHandleTable();  // never destroyed: hosts release at exit
  return *table;
}

std::uint64_t QENCHandleTable::insert(QENCHandleKind kind, std::shared_ptr<void> object) {
  const std::lock_guard guard(mutex_);
  std::uint32_t index;
  if (freeSlots_.empty()) {
    index = static_cast<std::uint32_t>(slots_.size());
    slots_.emplace_back();
  } else {
    index = freeSlots_.back();
    freeSlots_.pop_back();
  }
  Slot& slot = slots_[index];
  slot.kind = kind;
  slot.object = std::move(object);
  return idOf(index, slot.generation);
}

const QENCHandleTable::Slot* QENCHandleTable::live(std::uint64_t id, QENCHandleKind kind) const {
  const std::uint64_t indexPlusOne = id & 0xFFFFFFFFu;
  if (indexPlusOne == 0 || indexPlusOne > slots_.size()) {
    return nullptr;
  }
  const Slot& slot = slots_[indexPlusOne - 1];
  const bool current = slot.generation == (id >> 32) && slot.object != nullptr;
  return current && slot.kind == kind ? &slot : nullptr;
}

std::shared_ptr<void> QENCHandleTable::find(std::uint64_t id, QENCHandleKind kind) const {
  const std::lock_guard guard(mutex_);
  const Slot* slot = live(id, kind);
  return slot != nullptr ? slot->object : nullptr;
}

std::shared_ptr<void> QENCHandleTable::remove(std::uint64_t id, QENCHandleKind kind) {
  const std::lock_guard guard(mutex_);
  if (live(id, kind) == nullptr) {
    return nullptr;
  }
  const auto index = static_cast<std::uint32_t>((id & 0xFFFFFFFFu) - 1);
  Slot& slot = slots_[index];
  ++slot.generation;
  freeSlots_.push_back(index);
  return std::exchange(slot.object, nullptr);
}

std::size_t QENCHandleTable::count(QENCHandleKind kind) const {
  const std::lock_guard guard(mutex_);
  return static_cast<std::size_t>(
      std::count_if(slots_.begin(), slots_.end(),
                    [&](const Slot& slot) { return slot.object != nullptr && slot.kind == kind; }));
}
