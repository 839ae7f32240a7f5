#include "QENNetworkEndianHexString.h"

#include <bit>
#include <cstring>

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
  std::byte bytes[sizeof value];
  std::memcpy(bytes, &value, sizeof value);
  return qen_networkEndianHexString(std::span<const std::byte>(bytes));
}

}  // namespace QENFoundation
