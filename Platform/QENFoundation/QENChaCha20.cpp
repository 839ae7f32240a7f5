#include "QENChaCha20.h"

#include <cstring>

namespace QENFoundation {
namespace {

// One lane per block: a pass over these vectors computes LaneCount blocks at once.
using Lanes4 = std::uint32_t __attribute__((vector_size(16)));
using Lanes8 = std::uint32_t __attribute__((vector_size(32)));

// Everything below is force-inlined into the entry points, so that the eight-lane form is
// compiled with the AVX2 instructions of its caller. Vectors pass by reference only.
template <int Bits, class Lanes>
[[gnu::always_inline]] inline void rotateLeft(Lanes& value) {
  value = (value << Bits) | (value >> (32 - Bits));
}

template <class Lanes>
[[gnu::always_inline]] inline void quarterRound(Lanes& a, Lanes& b, Lanes& c, Lanes& d) {
  a += b;
  d ^= a;
  rotateLeft<16>(d);
  c += d;
  b ^= c;
  rotateLeft<12>(b);
  a += b;
  d ^= a;
  rotateLeft<8>(d);
  c += d;
  b ^= c;
  rotateLeft<7>(b);
}

template <class Lanes, std::uint32_t LaneCount>
[[gnu::always_inline]] inline void computeBlocks(const std::array<std::uint32_t, 16>& input,
                                                 std::byte* output) {
  Lanes initial[16];
  for (std::size_t word = 0; word < 16; ++word) {
    for (std::uint32_t lane = 0; lane < LaneCount; ++lane) {
      initial[word][lane] = input[word];
    }
  }
  for (std::uint32_t lane = 0; lane < LaneCount; ++lane) {
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

  // Transposed out lane by lane: block after block, each word little-endian.
  std::uint32_t words[16][LaneCount];
  for (std::size_t word = 0; word < 16; ++word) {
    x[word] += initial[word];
    std::memcpy(words[word], &x[word], sizeof words[word]);
  }
  for (std::uint32_t lane = 0; lane < LaneCount; ++lane) {
    for (std::size_t word = 0; word < 16; ++word) {
      const std::uint32_t value = words[word][lane];
      const unsigned char littleEndian[4] = {
          static_cast<unsigned char>(value), static_cast<unsigned char>(value >> 8),
          static_cast<unsigned char>(value >> 16), static_cast<unsigned char>(value >> 24)};
      std::memcpy(output, littleEndian, sizeof littleEndian);
      output += sizeof littleEndian;
    }
  }
}

void computeBlocksPortable(const std::array<std::uint32_t, 16>& input, std::byte* output) {
  computeBlocks<Lanes4, 4>(input, output);
  std::array<std::uint32_t, 16> next = input;
  next[12] = input[12] + 4;
  next[13] = input[13] + (next[12] < input[12] ? 1u : 0u);
  computeBlocks<Lanes4, 4>(next, output + 4 * kChaCha20BlockSize);
}

#if defined(__x86_64__)
__attribute__((target("avx2"))) void computeBlocksWide(const std::array<std::uint32_t, 16>& input,
                                                       std::byte* output) {
  computeBlocks<Lanes8, 8>(input, output);
}
#endif

}  // namespace

QENChaCha20Implementation QENChaCha20PreferredImplementation() {
#if defined(__x86_64__)
  static const bool hasAVX2 = __builtin_cpu_supports("avx2");
  return hasAVX2 ? QENChaCha20Implementation::kWideVectors : QENChaCha20Implementation::kPortable;
#else
  return QENChaCha20Implementation::kPortable;
#endif
}

void QENChaCha20Blocks(const std::array<std::uint32_t, 16>& input,
                       std::span<std::byte, kChaCha20BytesPerCall> output,
                       QENChaCha20Implementation implementation) {
#if defined(__x86_64__)
  if (implementation == QENChaCha20Implementation::kWideVectors) {
    computeBlocksWide(input, output.data());
    return;
  }
#endif
  (void)implementation;
  computeBlocksPortable(input, output.data());
}

}  // namespace QENFoundation
