#include "QENChaCha20Generator.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/random.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <random>
#include <span>

#include "QENChaCha20.h"

namespace QENFoundation {
namespace {

std::atomic<std::uint64_t> forkGeneration{1};

void noteFork() noexcept {
  forkGeneration.fetch_add(1, std::memory_order_relaxed);
}

std::uint64_t currentForkGeneration() noexcept {
  static const bool registered = [] {
    pthread_atfork(nullptr, nullptr, noteFork);
    return true;
  }();
  (void)registered;
  return forkGeneration.load(std::memory_order_relaxed);
}

bool readWithGetrandom(std::byte* destination, std::size_t size) noexcept {
  while (size > 0) {
    const ssize_t got = ::getrandom(destination, size, 0);
    if (got < 0) {
      if (errno == EINTR) {
        continue;
      }
      return false;
    }
    destination += got;
    size -= static_cast<std::size_t>(got);
  }
  return true;
}

bool readFromDevURandom(std::byte* destination, std::size_t size) noexcept {
  const int descriptor = ::open("/dev/urandom", O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) {
    return false;
  }
  while (size > 0) {
    const ssize_t got = ::read(descriptor, destination, size);
    if (got <= 0) {
      if (got < 0 && errno == EINTR) {
        continue;
      }
      ::close(descriptor);
      return false;
    }
    destination += got;
    size -= static_cast<std::size_t>(got);
  }
  ::close(descriptor);
  return true;
}

void wipe(void* memory, std::size_t size) noexcept {
  // A volatile pointer keeps the compiler from dropping stores to memory that is not read again.
  auto* bytes = static_cast<volatile unsigned char*>(memory);
  for (std::size_t index = 0; index < size; ++index) {
    bytes[index] = 0;
  }
}

}  // namespace

bool QENReadKernelRandomBytes(void* destination, std::size_t size) noexcept {
  auto* bytes = static_cast<std::byte*>(destination);
  return readWithGetrandom(bytes, size) || readFromDevURandom(bytes, size);
}

QENChaCha20Generator::~QENChaCha20Generator() {
  wipe(state_.data(), sizeof state_);
  wipe(batch_.data(), batch_.size());
}

bool QENChaCha20Generator::needsSeed() const noexcept {
  return !seeded_ || bytesSinceSeed_ >= kReseedInterval ||
         forkGeneration_ != currentForkGeneration();
}

void QENChaCha20Generator::seed() noexcept {
  std::uint32_t key[kKeySize / 4];
  if (!QENReadKernelRandomBytes(key, sizeof key)) {
    // Neither kernel interface answered (a sandbox without /dev and without getrandom). The
    // standard library's device is the last source there is.
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
  seeded_ = true;
}

void QENChaCha20Generator::refill() noexcept {
  constexpr std::size_t kBytesPerCall = kChaCha20BlockSize * kChaCha20BlocksPerCall;
  for (std::size_t offset = 0; offset < kBatchSize; offset += kBytesPerCall) {
    QENChaCha20Blocks(state_, std::span<std::byte, kBytesPerCall>(&batch_[offset], kBytesPerCall));
    const std::uint64_t counter =
        (std::uint64_t{state_[13]} << 32 | state_[12]) + kChaCha20BlocksPerCall;
    state_[12] = static_cast<std::uint32_t>(counter);
    state_[13] = static_cast<std::uint32_t>(counter >> 32);
  }
  // Fast key erasure: the batch's first bytes become the next key and are never handed out.
  std::memcpy(&state_[4], batch_.data(), kKeySize);
  state_[12] = state_[13] = 0;
  wipe(batch_.data(), kKeySize);
  available_ = kBatchSize - kKeySize;
}

void QENChaCha20Generator::fill(void* destination, std::size_t size) noexcept {
  auto* out = static_cast<std::byte*>(destination);
  while (size > 0) {
    if (needsSeed()) {
      seed();
    }
    if (available_ == 0) {
      refill();
    }
    const std::size_t take = size < available_ ? size : available_;
    std::byte* source = batch_.data() + (kBatchSize - available_);
    std::memcpy(out, source, take);
    wipe(source, take);
    available_ -= take;
    bytesSinceSeed_ += take;
    out += take;
    size -= take;
  }
}

}  // namespace QENFoundation
