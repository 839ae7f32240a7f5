#include "QENRandom.h"

#include "QENChaCha20Generator.h"

namespace QENFoundation {

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

}  // namespace QENFoundation
