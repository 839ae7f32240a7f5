#include "QENJSONSerialization.h"

#include <nlohmann/json.hpp>

std::optional<std::string> QENJSONSerialization::prettyPrintedObject(
    const std::map<std::string, std::vector<std::string>>& object) {
  try {
    return nlohmann::json(object).dump(4);
  } catch (const nlohmann::json::exception&) {
    return std::nullopt;  // invalid UTF-8 in a string
  }
}
