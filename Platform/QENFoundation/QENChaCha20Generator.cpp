#include "QENChaCha20Generator.h"

#include <pthread.h>

#include <atomic>
#include <cstring>
#include <random>
#include <span>

#include "QENChaCha20.h"
#include "QENHost/QENHostSystem.h"

namespace QENFoundation {
namespace {

std::atomic<std::uint64_t> forkGeneration{1};

void noteFork() noexcept {
  forkGeneration.fetch_add(1, std::memory_order_relaxed);
}

std::uint64_t currentForkGeneration() noexcept {
  return forkGeneration.load(std::memory_order_relaxed);
}

void watchForForks() noexcept {
  static const bool registered = pthread_atfork(nullptr, nullptr, noteFork) == 0;
  (void)registered;
}

void wipe(void* memory, std::size_t size) noexcept {
  std::memset(memory, 0, size);
  // Tells the compiler the zeroes are read, so it cannot drop them as dead stores.
  __asm__ __volatile__("" : : "r"(memory) : "memory");
}

// Copies and wipes the few bytes of a typical draw (an id is 8 bytes) with fixed-size moves
// the compiler inlines, instead of calls into the C library.
void copyAndWipe(std::byte* destination, std::byte* source, std::size_t size) noexcept {
  if (size > 16) {
    std::memcpy(destination, source, size);
    wipe(source, size);
    return;
  }
  std::size_t copied = 0;
  for (; copied + 8 <= size; copied += 8) {
    std::memcpy(destination + copied, source + copied, 8);
    std::memset(source + copied, 0, 8);
  }
  for (; copied < size; ++copied) {
    destination[copied] = source[copied];
    source[copied] = std::byte{0};
  }
  __asm__ __volatile__("" : : "r"(source) : "memory");
}

}  // namespace

bool QENChaCha20Generator::needsSeed() const noexcept {
  return !seeded_ || bytesSinceSeed_ >= kReseedInterval ||
         forkGeneration_ != currentForkGeneration();
}

void QENChaCha20Generator::seed() noexcept {
  watchForForks();
  std::uint32_t key[kKeySize / 4];
  if (!QENHostSystem::readRandomBytes(key, sizeof key)) {
    // The system's source did not answer (a sandbox without it). The standard library's device
    // is the last source there is.
    std::random_device device;
    for (std::uint32_t& word : key) {
      word = device();
    }
  }
  // "expand 32-byte k", the key, a zero counter and nonce.
  state_ = {0x61707865, 0x3320646e, 0x79622d32, 0x6b206574};
  std::memcpy(&state_[4], key, sizeof key);
  wipe(key, sizeof key);
  available_ = 0;
  bytesSinceSeed_ = 0;
  forkGeneration_ = currentForkGeneration();
  implementation_ = QENChaCha20PreferredImplementation();
  seeded_ = true;
}

void QENChaCha20Generator::refill() noexcept {
  // Every batch is made under a new key, so the counter starts from zero each time.
  QENChaCha20Blocks(state_, batch_, implementation_);
  // Fast key erasure: the batch's first bytes become the next key and are never handed out.
  std::memcpy(&state_[4], batch_.data(), kKeySize);
  state_[12] = state_[13] = 0;
  wipe(batch_.data(), kKeySize);
  available_ = kBatchSize - kKeySize;
}

void QENChaCha20Generator::fill(void* destination, std::size_t size) noexcept {
  auto* out = static_cast<std::byte*>(destination);
  while (size > 0) {
    if (available_ == 0 || needsSeed()) [[unlikely]] {
      if (needsSeed()) {
        seed();
      }
      refill();
    }
    const std::size_t take = size < available_ ? size : available_;
    copyAndWipe(out, batch_.data() + (kBatchSize - available_), take);
    available_ -= take;
    bytesSinceSeed_ += take;
    out += take;
    size -= take;
  }
}

}  // namespace QENFoundation
