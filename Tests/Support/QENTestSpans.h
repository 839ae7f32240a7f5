#pragma once

#include <string>

#include "QENSpanReporter.h"

// `count` spans named `name`, their ids counting up from `firstId`.
inline QENSpanReporter::SpanList testSpans(int count, std::int64_t firstId = 1,
                                           const std::string& name = "span") {
  QENSpanReporter::SpanList spans;
  for (std::int64_t id = firstId; id < firstId + count; ++id) {
    spans.push_back(std::make_shared<QENThrift::Span>());
    spans.back()->setId(id);
    spans.back()->setName(name);
  }
  return spans;
}
