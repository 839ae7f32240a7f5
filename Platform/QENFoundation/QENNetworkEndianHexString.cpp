#include "QENNetworkEndianHexString.h"

#include <bit>
#include <cstring>

namespace QENFoundation {

std::string qen_networkEndianHexString(std::span<const std::byte> hostOrderBytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text(hostOrderBytes.size() * 2, '0');
  const std::size_t count = hostOrderBytes.size();
  for (std::size_t position = 0; position < count; ++position) {
    // Big-endian output: the most significant byte first.
    const std::size_t source =
        std::endian::native == std::endian::little ? count - 1 - position : position;
    const auto byte = std::to_integer<unsigned>(hostOrderBytes[source]);
    text[2 * position] = kDigits[byte >> 4];
    text[2 * position + 1] = kDigits[byte & 0xF];
  }
  return text;
}

std::string qen_networkEndianHexString(std::int64_t value) {
  std::byte bytes[sizeof value];
  std::memcpy(bytes, &value, sizeof value);
  return qen_networkEndianHexString(std::span<const std::byte>(bytes));
}

}  // namespace QENFoundation
