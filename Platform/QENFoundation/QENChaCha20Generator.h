#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "QENChaCha20.h"

namespace QENFoundation {

// A cryptographically secure random generator: a ChaCha20 keystream with fast key erasure.
//
// Each refill computes a batch of keystream blocks; the first 32 bytes of the batch become the
// next key and the rest is handed out, each byte once, and wiped as it is handed out. Past
// output cannot be recomputed from the generator's memory. The key is seeded from the kernel
// on first use, again after every kReseedInterval bytes, and again in a child process after
// fork (the two processes never share output).
//
// One instance is not thread-safe; QENRandom keeps one per thread. It is constant-initialised
// and trivially destructible, so that a thread-local instance costs no initialisation check on
// each draw.
class QENChaCha20Generator {
 public:
  static constexpr std::size_t kReseedInterval = 1 << 20;

  constexpr QENChaCha20Generator() = default;
  QENChaCha20Generator(const QENChaCha20Generator&) = delete;
  QENChaCha20Generator& operator=(const QENChaCha20Generator&) = delete;

  void fill(void* destination, std::size_t size) noexcept;

 private:
  static constexpr std::size_t kKeySize = 32;
  static constexpr std::size_t kBatchSize = kChaCha20BytesPerCall;

  bool needsSeed() const noexcept;
  void seed() noexcept;
  void refill() noexcept;

  std::array<std::uint32_t, 16> state_{};
  std::array<std::byte, kBatchSize> batch_{};
  std::size_t available_ = 0;  // unread bytes, at the end of batch_
  std::size_t bytesSinceSeed_ = 0;
  std::uint64_t forkGeneration_ = 0;
  QENChaCha20Implementation implementation_ = QENChaCha20Implementation::kPortable;
  bool seeded_ = false;
};

}  // namespace QENFoundation
