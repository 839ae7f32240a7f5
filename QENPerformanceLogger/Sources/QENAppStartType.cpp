#include "QENAppStartType.h"

#include <cmath>
#include <string>

#include "BinaryAnnotation+QENAdditions.h"
#include "QENAssert.h"
#include "QENPerformanceMetric.h"

namespace {

bool factsArePossible(const QENAppStartFacts& facts) {
  if (!std::isfinite(facts.processStartTime)) {
    return false;
  }
  return !facts.firstScreenTime || (std::isfinite(*facts.firstScreenTime) &&
                                    *facts.firstScreenTime >= facts.processStartTime);
}

}  // namespace

std::string_view QENAppStartTypeName(QENAppStartType type) {
  switch (type) {
    case QENAppStartType::kCold:
      return "cold";
    case QENAppStartType::kWarm:
      return "warm";
    case QENAppStartType::kHot:
      return "hot";
    case QENAppStartType::kPrewarmed:
      return "prewarmed";
  }
  return "cold";
}

std::optional<QENAppStartType> QENClassifyAppStart(const QENAppStartFacts& facts,
                                                   double longestColdStartSeconds) {
  const bool possible = factsArePossible(facts);
  QENAssert(possible, "QENClassifyAppStart", "Invalid parameter not satisfying: %s",
            "finite times, the first screen not before the process");
  if (!possible || !facts.firstScreenTime) {
    return std::nullopt;
  }
  if (facts.processWasRunning) {
    return facts.screenWasCreated ? QENAppStartType::kWarm : QENAppStartType::kHot;
  }
  if (facts.prewarmedBySystem) {
    return QENAppStartType::kPrewarmed;
  }
  if (!facts.startedForForeground) {
    return QENAppStartType::kWarm;  // the user's wait began at the screen, not the process
  }
  if (*facts.firstScreenTime - facts.processStartTime > longestColdStartSeconds) {
    return std::nullopt;
  }
  return facts.restoredFromSavedState ? QENAppStartType::kWarm : QENAppStartType::kCold;
}

std::optional<QENAppStartType> QENTagAppStart(QENPerformanceMetric& startMetric,
                                              const QENAppStartFacts& facts) {
  const auto type = QENClassifyAppStart(facts);
  if (type) {
    startMetric.addBinaryAnnotation(
        QENThrift::BinaryAnnotationQENAdditions::annotationWithKeyString(
            QENAppStartTypeTagKey, QENAppStartTypeName(*type)));
  }
  return type;
}
