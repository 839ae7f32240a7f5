#include "QENIndentation.h"

namespace QENFoundation {

std::string prependIndentationLevel(std::string_view text, std::size_t level) {
  std::string indented(level * kIndentationLevelWidth, ' ');
  indented.append(text);
  return indented;
}

}  // namespace QENFoundation
