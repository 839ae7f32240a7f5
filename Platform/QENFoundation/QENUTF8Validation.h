#pragma once

#include <string_view>

// Whether the bytes are well-formed UTF-8 as RFC 3629 defines it: no overlong forms, no
// surrogates, nothing past U+10FFFF.
bool QENIsValidUTF8(std::string_view bytes) noexcept;
