#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace QENFoundation {

inline constexpr std::size_t kChaCha20BlockSize = 64;
inline constexpr std::size_t kChaCha20BlocksPerCall = 8;
inline constexpr std::size_t kChaCha20BytesPerCall = kChaCha20BlockSize * kChaCha20BlocksPerCall;

// How the blocks are computed: four blocks at a time in 128-bit vectors (SSE2, NEON), or eight
// at a time in 256-bit vectors where the processor has AVX2.
enum class QENChaCha20Implementation { kPortable, kWideVectors };

// The best implementation this processor runs.
QENChaCha20Implementation QENChaCha20PreferredImplementation();

// The ChaCha20 block function, eight blocks at a time.
//
// `input` is the sixteen-word ChaCha20 state (constants, key, block counter in word 12, nonce).
// Writes the keystream of the eight consecutive blocks whose counters are input[12] + 0..7 (a
// counter that passes 2^32 carries into word 13, so words 12 and 13 form one 64-bit counter).
void QENChaCha20Blocks(
    const std::array<std::uint32_t, 16>& input, std::span<std::byte, kChaCha20BytesPerCall> output,
    QENChaCha20Implementation implementation = QENChaCha20PreferredImplementation());

}  // namespace QENFoundation
