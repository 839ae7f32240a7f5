#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

// The JSON writer of the platform layer: the one shape the library writes (call stacks), written
// directly, with no exceptions and no third-party code, so that the library needs nothing beyond
// the standard library.
class QENJSONSerialization {
 public:
  // An object of string keys to lists of strings, pretty-printed with four-space indentation:
  // quotes, backslashes and control characters escaped (\b \f \n \r \t, else \u00XX), every other
  // byte as it is. Absent if a string is not valid UTF-8 and so cannot be written as JSON.
  static std::optional<std::string> prettyPrintedObject(
      const std::map<std::string, std::vector<std::string>>& object);
};
