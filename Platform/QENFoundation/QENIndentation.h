#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace QENFoundation {

// The width of one indentation level, in spaces.
inline constexpr std::size_t kIndentationLevelWidth = 2;

// Returns the text with `level` indentation levels prepended.
std::string prependIndentationLevel(std::string_view text, std::size_t level);

}  // namespace QENFoundation
