#pragma once

#include <cstddef>
#include <string_view>

// What the UTF-8 sequence starting at some byte is: well-formed as RFC 3629 defines it (no
// overlong forms, no surrogates, nothing past U+10FFFF) and how many bytes it has, or ill-formed
// and how many bytes make its maximal subpart: the longest start of it that could still have
// begun a well-formed sequence (at least one byte). A writer that replaces each maximal subpart by
// one U+FFFD replaces as the Unicode standard recommends, and as nlohmann-json's `replace` does.
struct QENUTF8Sequence {
  std::size_t length;
  bool wellFormed;
};
QENUTF8Sequence QENUTF8SequenceAt(std::string_view bytes, std::size_t index) noexcept;

// Whether the bytes are well-formed UTF-8 throughout.
bool QENIsValidUTF8(std::string_view bytes) noexcept;
