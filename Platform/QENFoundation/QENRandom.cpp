#include "QENRandom.h"

#if defined(__APPLE__) || defined(__ANDROID__) || defined(__FreeBSD__) || defined(__OpenBSD__) || \
    defined(__NetBSD__)
#define QEN_NATIVE_ARC4RANDOM 1
#include <stdlib.h>
#else
#include "QENChaCha20Generator.h"
#endif

namespace QENFoundation {

#if defined(QEN_NATIVE_ARC4RANDOM)

// The C library's own generator: per-process, fork-safe and fast where it is native.
void arc4random_buf(void* destination, std::size_t size) noexcept {
  ::arc4random_buf(destination, size);
}

std::uint32_t arc4random_uniform(std::uint32_t upperBound) noexcept {
  return upperBound < 2 ? 0 : ::arc4random_uniform(upperBound);
}

#else

namespace {
constinit thread_local QENChaCha20Generator generator;
}

void arc4random_buf(void* destination, std::size_t size) noexcept {
  generator.fill(destination, size);
}

std::uint32_t arc4random_uniform(std::uint32_t upperBound) noexcept {
  if (upperBound < 2) {
    return 0;
  }
  // Draws below 2^32 mod upperBound would make the low residues more likely; skip them.
  const std::uint32_t minimum = (0u - upperBound) % upperBound;
  std::uint32_t draw = 0;
  do {
    arc4random_buf(&draw, sizeof draw);
  } while (draw < minimum);
  return draw % upperBound;
}

#endif

}  // namespace QENFoundation
