#include "QENUTF8Validation.h"

#include <cstdint>

bool QENIsValidUTF8(std::string_view bytes) noexcept {
  std::size_t index = 0;
  while (index < bytes.size()) {
    const auto lead = static_cast<unsigned char>(bytes[index]);
    std::size_t length = 0;
    std::uint32_t codePoint = 0;
    if (lead < 0x80) {
      ++index;
      continue;
    } else if (lead >= 0xC2 && lead <= 0xDF) {
      length = 2, codePoint = lead & 0x1F;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
      length = 3, codePoint = lead & 0x0F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
      length = 4, codePoint = lead & 0x07;
    } else {
      return false;
    }
    if (index + length > bytes.size()) {
      return false;
    }
    for (std::size_t offset = 1; offset < length; ++offset) {
      const auto continuation = static_cast<unsigned char>(bytes[index + offset]);
      if ((continuation & 0xC0) != 0x80) {
        return false;
      }
      codePoint = codePoint << 6 | (continuation & 0x3F);
    }
    const bool overlong =
        (length == 3 && codePoint < 0x800) || (length == 4 && codePoint < 0x10000);
    const bool surrogate = codePoint >= 0xD800 && codePoint <= 0xDFFF;
    if (overlong || surrogate || codePoint > 0x10FFFF) {
      return false;
    }
    index += length;
  }
  return true;
}
