#pragma once

#include <cstdarg>
#include <string>

namespace QENFoundation {

// printf-style formatting whose numbers read the same everywhere: the decimal point is a dot
// whatever the process locale, where the C library would follow it (a German locale writes
// "0,250000" for %f). For log messages and descriptions, which a developer greps and compares.
std::string formatString(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string formatStringV(const char* format, std::va_list arguments);

}  // namespace QENFoundation
