#pragma once

#include <string>

#include "QENThrift/Span.h"

namespace QENThrift {

// A one-line description of a span for logs:
//   <Span 0x55d0c1a0: 'home_feed_render' 1f3a trace=9c02 start=2026-11-22 21:04:05 +0000
//   duration=0.250 parent=7b {net.type:<0002> lc:<696f73>}
// Ids print as lower-case hexadecimal of their 64-bit pattern, the start as a UTC date, the
// duration in seconds with three decimals; the parent only when set, the binary annotations
// (key, then a hexadecimal dump of the value) only when there are some. The opening angle
// bracket is never closed.
class SpanDebugDescription {
 public:
  static std::string debugDescription(const Span& span);
};

}  // namespace QENThrift
