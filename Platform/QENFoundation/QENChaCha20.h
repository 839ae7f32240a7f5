#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace QENFoundation {

// The ChaCha20 block function, four blocks at a time.
//
// `input` is the sixteen-word ChaCha20 state (constants, key, block counter in word 12, nonce).
// Writes the keystream of the four consecutive blocks whose counters are input[12] + 0..3 (a
// counter that passes 2^32 carries into word 13, so words 12 and 13 form one 64-bit counter).
inline constexpr std::size_t kChaCha20BlockSize = 64;
inline constexpr std::size_t kChaCha20BlocksPerCall = 4;

void QENChaCha20Blocks(const std::array<std::uint32_t, 16>& input,
                       std::span<std::byte, kChaCha20BlockSize * kChaCha20BlocksPerCall> output);

}  // namespace QENFoundation
