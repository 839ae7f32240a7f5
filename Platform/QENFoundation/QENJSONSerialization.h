#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

// The JSON writer of the platform layer (nlohmann-json underneath).
class QENJSONSerialization {
 public:
  // An object of string keys to lists of strings, pretty-printed (four-space indentation).
  // Absent if a string is not valid UTF-8 and so cannot be written as JSON.
  static std::optional<std::string> prettyPrintedObject(
      const std::map<std::string, std::vector<std::string>>& object);
};
