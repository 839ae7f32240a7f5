#include "QENJSONSerialization.h"

#include <cstdint>
#include <string_view>

namespace {

// Well-formed UTF-8 as RFC 3629 defines it: no overlong forms, no surrogates, nothing past
// U+10FFFF.
bool isValidUTF8(std::string_view text) {
  std::size_t index = 0;
  while (index < text.size()) {
    const auto lead = static_cast<unsigned char>(text[index]);
    std::size_t length = 0;
    std::uint32_t lowest = 0;
    std::uint32_t codePoint = 0;
    if (lead < 0x80) {
      ++index;
      continue;
    } else if ((lead & 0xE0) == 0xC0) {
      length = 2, lowest = 0x80, codePoint = lead & 0x1Fu;
    } else if ((lead & 0xF0) == 0xE0) {
      length = 3, lowest = 0x800, codePoint = lead & 0x0Fu;
    } else if ((lead & 0xF8) == 0xF0) {
      length = 4, lowest = 0x10000, codePoint = lead & 0x07u;
    } else {
      return false;
    }
    if (index + length > text.size()) {
      return false;
    }
    for (std::size_t continuation = 1; continuation < length; ++continuation) {
      const auto byte = static_cast<unsigned char>(text[index + continuation]);
      if ((byte & 0xC0) != 0x80) {
        return false;
      }
      codePoint = (codePoint << 6) | (byte & 0x3Fu);
    }
    if (codePoint < lowest || codePoint > 0x10FFFF ||
        (codePoint >= 0xD800 && codePoint <= 0xDFFF)) {
      return false;
    }
    index += length;
  }
  return true;
}

void appendQuoted(std::string& out, std::string_view text) {
  static constexpr char kHexDigits[] = "0123456789abcdef";
  out += '"';
  for (const char character : text) {
    switch (character) {
      case '"':
        out += "\\\"";
        break;
      case '\\':
        out += "\\\\";
        break;
      case '\b':
        out += "\\b";
        break;
      case '\f':
        out += "\\f";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\r':
        out += "\\r";
        break;
      case '\t':
        out += "\\t";
        break;
      default:
        if (static_cast<unsigned char>(character) < 0x20) {
          out += "\\u00";
          out += kHexDigits[(character >> 4) & 0x0F];
          out += kHexDigits[character & 0x0F];
        } else {
          out += character;
        }
    }
  }
  out += '"';
}

void appendList(std::string& out, const std::vector<std::string>& list) {
  if (list.empty()) {
    out += "[]";
    return;
  }
  out += "[\n";
  for (std::size_t index = 0; index < list.size(); ++index) {
    out += "        ";
    appendQuoted(out, list[index]);
    out += index + 1 < list.size() ? ",\n" : "\n";
  }
  out += "    ]";
}

}  // namespace

std::optional<std::string> QENJSONSerialization::prettyPrintedObject(
    const std::map<std::string, std::vector<std::string>>& object) {
  if (object.empty()) {
    return "{}";
  }
  std::string out = "{\n";
  std::size_t remaining = object.size();
  for (const auto& [key, list] : object) {
    if (!isValidUTF8(key)) {
      return std::nullopt;
    }
    for (const std::string& entry : list) {
      if (!isValidUTF8(entry)) {
        return std::nullopt;
      }
    }
    out += "    ";
    appendQuoted(out, key);
    out += ": ";
    appendList(out, list);
    out += --remaining > 0 ? ",\n" : "\n";
  }
  return out + "}";
}
