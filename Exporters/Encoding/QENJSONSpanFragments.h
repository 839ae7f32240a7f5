#pragma once

#include <span>
#include <string>

#include "QENFoundation/QENJSONWriter.h"
#include "QENSpanReading.h"
#include "QENThrift/Span.h"

// What the JSON encoders share to encode spans one at a time and frame them into a document.
namespace QENJSONSpanFragments {

// One span alone, written by `writeSpan(json, reading, scratch)` exactly as the encoder writes
// it among others.
template <class WriteSpan>
std::string encode(const QENThrift::Span& span, const QENSpanReadingOptions& options,
                   const WriteSpan& writeSpan) {
  std::string out;
  QENJSONWriter json(out);
  QENSpanReading reading(options);
  std::string scratch;
  reading.read(span);
  writeSpan(json, reading, scratch);
  return out;
}

// Spans encoded one at a time, placed as the elements of the array `json` has open.
inline void place(QENJSONWriter& json, std::span<const std::string> encodedSpans) {
  for (const std::string& encoded : encodedSpans) {
    json.literal(encoded);
  }
}

}  // namespace QENJSONSpanFragments
