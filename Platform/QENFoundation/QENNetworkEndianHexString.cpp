#include "QENNetworkEndianHexString.h"

#include <bit>

namespace QENFoundation {

namespace {

std::string hexDigits(std::span<const std::byte> bytes, bool reversed) {
  static constexpr char kDigits[] = "0123456789abcdef";
  const std::size_t count = bytes.size();
  std::string text(count * 2, '0');
  for (std::size_t position = 0; position < count; ++position) {
    const auto byte = std::to_integer<unsigned>(bytes[reversed ? count - 1 - position : position]);
    text[2 * position] = kDigits[byte >> 4];
    text[2 * position + 1] = kDigits[byte & 0xF];
  }
  return text;
}

}  // namespace

std::string qen_networkEndianHexString(std::span<const std::byte> hostOrderBytes) {
  // Big-endian output: the most significant byte first.
  return hexDigits(hostOrderBytes, std::endian::native == std::endian::little);
}

std::string qen_hexString(std::span<const std::byte> bytes) {
  return hexDigits(bytes, false);
}

std::string qen_networkEndianHexString(std::int64_t value) {
  std::string text(16, '0');
  qen_writeNetworkEndianHex(value, std::span<char, 16>(text.data(), 16));
  return text;
}

void qen_writeNetworkEndianHex(std::int64_t value, std::span<char, 16> digits) {
  static constexpr char kDigits[] = "0123456789abcdef";
  auto bits = static_cast<std::uint64_t>(value);
  for (std::size_t position = 16; position > 0; --position, bits >>= 4) {
    digits[position - 1] = kDigits[bits & 0xF];
  }
}

}  // namespace QENFoundation
