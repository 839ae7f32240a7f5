#pragma once

#include <string>
#include <string_view>

// The two routines behind the assertion macros of QENAssert.h.

// Sends one error record for a failed assertion to the developer logger's remote logger:
// the message, skipLogOnProduction true, one frame to trim, the method, a lazily computed file
// identifier ("Module/File"), the line and the full source path. Never throws, never aborts.
// `moduleName` is given for the library's own sources, which are recognised at build time
// wherever the checkout lies; for any other source the module comes from the path.
void AssertionFailureReport(std::string message, const char* method, int line,
                            const char* sourcePath, const char* fileName,
                            const char* moduleName = nullptr);

// The module that a source path belongs to, found from the folder layout: the component after
// the last marker folder ("Platform", "Library", "FeatureLibrary" or "Feature") that has two
// more components after it. "unknown" when no marker qualifies.
//
//   /build/Platform/Kit/Sources/File  -> "Kit"
//   /build/Feature/Home/Tests/File    -> "HomeTests"
//   /build/Library/Net/Impl/File      -> "NetImpl"
//   /src/Other/File                   -> "unknown"
std::string ModuleNameForSourcePath(std::string_view sourcePath);

// Formats an assertion message, printf-style.
std::string QENFormatAssertionMessage(const char* format, ...)
    __attribute__((format(printf, 1, 2)));

// The base name of a source path, found at compile time.
constexpr const char* QENSourceFileBaseName(const char* path) {
  const char* baseName = path;
  for (const char* character = path; *character != '\0'; ++character) {
    if (*character == '/') {
      baseName = character + 1;
    }
  }
  return baseName;
}
