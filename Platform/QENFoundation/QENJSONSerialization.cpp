#include "QENJSONSerialization.h"

#include <string_view>

#include "QENUTF8Validation.h"

namespace {

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
    if (!QENIsValidUTF8(key)) {
      return std::nullopt;
    }
    for (const std::string& entry : list) {
      if (!QENIsValidUTF8(entry)) {
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
