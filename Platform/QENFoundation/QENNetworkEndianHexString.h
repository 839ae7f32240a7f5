#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace QENFoundation {

// Renders a byte buffer that holds an integer in host byte order as the hexadecimal text of the
// value in network (big-endian) byte order: two lower-case digits per byte, leading zeros kept.
// An empty buffer renders as "".
std::string qen_networkEndianHexString(std::span<const std::byte> hostOrderBytes);

// The bytes as they stand, two lower-case hexadecimal digits each ("0a0b" for {0x0a, 0x0b}).
std::string qen_hexString(std::span<const std::byte> bytes);

// The same for a 64-bit id: always 16 lower-case hexadecimal digits (the B3 header form).
std::string qen_networkEndianHexString(std::int64_t value);

// The same 16 digits written into a buffer, for writers that allocate nothing per id.
void qen_writeNetworkEndianHex(std::int64_t value, std::span<char, 16> digits);

}  // namespace QENFoundation
