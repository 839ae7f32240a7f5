#include "QENJSONSerialization.h"

#include <string_view>

#include "QENJSONWriter.h"
#include "QENUTF8Validation.h"

namespace {

void appendList(std::string& out, const std::vector<std::string>& list) {
  if (list.empty()) {
    out += "[]";
    return;
  }
  out += "[\n";
  for (std::size_t index = 0; index < list.size(); ++index) {
    out += "        ";
    QENJSONWriter::appendQuoted(out, list[index]);
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
    QENJSONWriter::appendQuoted(out, key);
    out += ": ";
    appendList(out, list);
    out += --remaining > 0 ? ",\n" : "\n";
  }
  return out + "}";
}
