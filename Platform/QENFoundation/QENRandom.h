#pragma once

#include <cstddef>
#include <cstdint>

// Cryptographically secure random numbers with the contract of the BSD functions of the same
// names: they never fail, never block after the first seeding, and are safe to call from any
// thread and after fork. Where the C library has them natively (Apple platforms, Android's
// bionic, the BSDs) they are those. On glibc hosts, whose arc4random is a system call per draw,
// each thread draws from its own ChaCha20 generator (QENChaCha20Generator), seeded from the host
// system, so a draw costs tens of nanoseconds.
//
// They live in this namespace so that they never collide with the C library's own functions of
// the same names (glibc 2.36 has them, as a system call per draw).
namespace QENFoundation {

void arc4random_buf(void* destination, std::size_t size) noexcept;

// A uniformly distributed number in [0, upperBound), without modulo bias; 0 when upperBound < 2.
std::uint32_t arc4random_uniform(std::uint32_t upperBound) noexcept;

}  // namespace QENFoundation
