#pragma once

#include <random>
#include <string>

namespace QENTest {

// Up to `maximumPieces` pieces chosen at the edges of JSON escaping and UTF-8: control
// characters, quotes, characters at either end of each lead byte's range, every kind of
// ill-formed sequence, and names a span format gives a meaning of its own.
inline std::string randomText(std::mt19937_64& random, unsigned maximumPieces) {
  // clang-format off
  static const char* const kPieces[] = {
      "a", "\"", "\\", "\n", "\t", "\x01", "\x1f", "\x7f", "/",           // escapes and controls
      "\xC3\xA9", "\xE2\x82\xAC", "\xE0\xA0\x80", "\xED\x9F\xBF",        // well formed,
      "\xEF\xBF\xBD", "\xF0\x9F\x98\x80", "\xF4\x8F\xBF\xBF",          // at their ranges' ends
      "\xC3", "\xE0\x80", "\xED\xA0\x80", "\xC0\xAF", "\xF4\x90\x80\x80", "\xFF",  // ill formed
      "cs", "cr", "lc", "traceId", "parentId"};                   // names with a meaning
  // clang-format on
  std::string made;
  for (auto count = random() % (maximumPieces + 1); count > 0; --count) {
    made += kPieces[random() % std::size(kPieces)];
  }
  return made;
}

}  // namespace QENTest
