#include "Span+DebugDescription.h"

#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <ctime>

#include "QENFoundation/QENFormat.h"
#include "QENFoundation/QENNetworkEndianHexString.h"

namespace QENThrift {
namespace {

std::string hexId(std::int64_t id) {
  char text[17];
  std::snprintf(text, sizeof text, "%" PRIx64, static_cast<std::uint64_t>(id));
  return text;
}

// "yyyy-mm-dd hh:mm:ss +0000"; a start outside what the calendar functions take prints as its
// number of seconds.
std::string utcDate(double secondsSince1970) {
  const double whole = std::floor(secondsSince1970);
  std::tm parts{};
  if (!std::isfinite(whole) || whole < -6.7e15 || whole > 6.7e15) {
    return std::to_string(secondsSince1970);
  }
  const auto seconds = static_cast<std::time_t>(whole);
  char text[64];
  if (::gmtime_r(&seconds, &parts) == nullptr ||
      std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S +0000", &parts) == 0) {
    return std::to_string(secondsSince1970);
  }
  return text;
}

// "<01020304 0506>": the bytes in groups of four.
std::string hexDump(const std::optional<BinaryAnnotation::Bytes>& bytes) {
  if (!bytes) {
    return "(null)";
  }
  const std::string digits = QENFoundation::qen_hexString(*bytes);
  std::string text = "<";
  for (std::size_t index = 0; index < digits.size(); index += 8) {
    if (index > 0) {
      text += ' ';
    }
    text.append(digits, index, 8);
  }
  return text + ">";
}

}  // namespace

std::string SpanDebugDescription::debugDescription(const Span& span) {
  char address[32];
  std::snprintf(address, sizeof address, "%p", static_cast<const void*>(&span));
  const std::string duration =
      QENFoundation::formatString("%.3f", static_cast<double>(span.duration()) / 1000000);
  std::string text = "<Span " + std::string(address) + ": '" + span.name() + "' " +
                     hexId(span.id()) + " trace=" + hexId(span.trace_id()) +
                     " start=" + utcDate(static_cast<double>(span.timestamp()) / 1000000) +
                     " duration=" + duration;
  if (span.parent_idIsSet()) {
    text += " parent=" + hexId(span.parent_id());
  }
  if (!span.binary_annotations().empty()) {
    std::string joined;
    for (const auto& annotation : span.binary_annotations()) {
      if (annotation == nullptr) {
        continue;  // as the encoders skip it
      }
      if (!joined.empty()) {
        joined += ' ';
      }
      joined += annotation->key() + ":" + hexDump(annotation->value());
    }
    text += " {" + joined + "}";
  }
  return text;
}

}  // namespace QENThrift
