#include "QENSpanReporterOptions.h"

#include <algorithm>

#include "QENAssert.h"
#include "QENSpanReading.h"

namespace {

using std::chrono::milliseconds;

constexpr const char* kConstructor = "QENSpanReporter::QENSpanReporter(QENSpanReporterOptions)";

// Replaces a setting below its floor by the floor, reporting it.
template <class Value>
void raiseToFloor(Value& value, Value floor, const char* conditionText) {
  QENAssert(value >= floor, kConstructor, "Invalid parameter not satisfying: %s", conditionText);
  value = std::max(value, floor);
}

}  // namespace

QENSpanReporterOptions QENSpanReporterOptions::validated() const {
  QENSpanReporterOptions options = *this;
  raiseToFloor<std::size_t>(options.maximumSpansPerReport, 1, "maximumSpansPerReport >= 1");
  raiseToFloor<std::size_t>(options.encoding.reading.maximumTagsPerSpan,
                            QENSpanReading::kLeastTagsPerSpan, "maximumTagsPerSpan >= 1");
  raiseToFloor<std::size_t>(options.encoding.reading.maximumTagValueBytes,
                            QENSpanReading::kLeastTagValueBytes, "maximumTagValueBytes >= 16");
  raiseToFloor<std::size_t>(options.maximumQueuedSpans, 1, "maximumQueuedSpans >= 1");
  raiseToFloor<std::size_t>(options.maximumBatchSpans, 1, "maximumBatchSpans >= 1");
  raiseToFloor<std::size_t>(options.maximumBatchBytes, 1, "maximumBatchBytes >= 1");
  raiseToFloor(options.flushInterval, milliseconds(0), "flushInterval >= 0");
  raiseToFloor(options.maximumRetries, 0, "maximumRetries >= 0");
  raiseToFloor(options.maximumSpooledRetries, 0, "maximumSpooledRetries >= 0");
  raiseToFloor(options.initialBackoff, milliseconds(0), "initialBackoff >= 0");
  raiseToFloor(options.maximumBackoff, options.initialBackoff, "maximumBackoff >= initialBackoff");
  raiseToFloor(options.maximumRetryAfter, milliseconds(0), "maximumRetryAfter >= 0");
  raiseToFloor(options.requestTimeout, milliseconds(1), "requestTimeout >= 1 ms");
  raiseToFloor(options.destructionShutdownLimit, milliseconds(0), "destructionShutdownLimit >= 0");
  const double level = options.minimumBatteryLevel;
  const bool levelValid = level >= 0 && level <= 1;  // NaN too is not
  QENAssert(levelValid, kConstructor, "Invalid parameter not satisfying: %s",
            "0 <= minimumBatteryLevel <= 1");
  options.minimumBatteryLevel = levelValid ? level : level > 1 ? 1 : 0;
  QENAssert(options.transport != nullptr || !options.collectorURL.empty(), kConstructor,
            "Invalid parameter not satisfying: %s", "collectorURL is not empty");
  // A line break would end the header early and smuggle in another; such a header is left out.
  std::erase_if(options.headers, [](const auto& header) {
    const auto& [name, value] = header;
    const bool wellFormed = !name.empty() && name.find_first_of(":\r\n") == std::string::npos &&
                            value.find_first_of("\r\n") == std::string::npos;
    QENAssert(wellFormed, kConstructor, "Invalid parameter not satisfying: %s",
              "a header has a name without a colon, and no line break");
    return !wellFormed;
  });
  return options;
}
