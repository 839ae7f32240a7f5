#include "QENChaCha20.h"

#include <cstring>

namespace QENFoundation {
namespace {

// Four lanes of 32-bit words: one lane per block, so one pass computes four blocks with vector
// instructions (SSE2 on x86-64, NEON on ARM).
using Lanes = std::uint32_t __attribute__((vector_size(16)));
constexpr std::size_t kLaneCount = kChaCha20BlocksPerCall;

template <int Bits>
inline Lanes rotateLeft(Lanes value) {
  return (value << Bits) | (value >> (32 - Bits));
}

inline void quarterRound(Lanes& a, Lanes& b, Lanes& c, Lanes& d) {
  a += b;
  d = rotateLeft<16>(d ^ a);
  c += d;
  b = rotateLeft<12>(b ^ c);
  a += b;
  d = rotateLeft<8>(d ^ a);
  c += d;
  b = rotateLeft<7>(b ^ c);
}

Lanes broadcast(std::uint32_t word) {
  return Lanes{word, word, word, word};
}

}  // namespace

void QENChaCha20Blocks(const std::array<std::uint32_t, 16>& input,
                       std::span<std::byte, kChaCha20BlockSize * kChaCha20BlocksPerCall> output) {
  Lanes initial[16];
  for (std::size_t word = 0; word < 16; ++word) {
    initial[word] = broadcast(input[word]);
  }
  for (std::uint32_t lane = 0; lane < kLaneCount; ++lane) {
    const std::uint32_t counter = input[12] + lane;
    initial[12][lane] = counter;
    initial[13][lane] = input[13] + (counter < input[12] ? 1u : 0u);
  }

  Lanes x[16];
  std::memcpy(x, initial, sizeof x);
  for (int doubleRound = 0; doubleRound < 10; ++doubleRound) {
    quarterRound(x[0], x[4], x[8], x[12]);
    quarterRound(x[1], x[5], x[9], x[13]);
    quarterRound(x[2], x[6], x[10], x[14]);
    quarterRound(x[3], x[7], x[11], x[15]);
    quarterRound(x[0], x[5], x[10], x[15]);
    quarterRound(x[1], x[6], x[11], x[12]);
    quarterRound(x[2], x[7], x[8], x[13]);
    quarterRound(x[3], x[4], x[9], x[14]);
  }

  std::byte* out = output.data();
  for (std::size_t lane = 0; lane < kLaneCount; ++lane) {
    for (std::size_t word = 0; word < 16; ++word) {
      const std::uint32_t value = x[word][lane] + initial[word][lane];
      const unsigned char littleEndian[4] = {
          static_cast<unsigned char>(value), static_cast<unsigned char>(value >> 8),
          static_cast<unsigned char>(value >> 16), static_cast<unsigned char>(value >> 24)};
      std::memcpy(out, littleEndian, sizeof littleEndian);
      out += sizeof littleEndian;
    }
  }
}

}  // namespace QENFoundation
