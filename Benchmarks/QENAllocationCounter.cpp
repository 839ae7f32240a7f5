#include "QENAllocationCounter.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::size_t> allocatedBytes{0};

}  // namespace

std::size_t QENAllocatedBytes() {
  return allocatedBytes.load(std::memory_order_relaxed);
}

void* operator new(std::size_t size) {
  allocatedBytes.fetch_add(size, std::memory_order_relaxed);
  if (void* block = std::malloc(size == 0 ? 1 : size)) {
    return block;
  }
  throw std::bad_alloc();
}

void operator delete(void* block) noexcept {
  std::free(block);
}

void operator delete(void* block, std::size_t) noexcept {
  std::free(block);
}
