#include <gtest/gtest.h>

#include <cmath>

#include "QENAppStartType.h"
#include "QENPerformanceMetric.h"
#include "Support/QENAnnotationReaders.h"
#include "Support/QENCapturedAssertions.h"

namespace {

using Type = QENAppStartType;

using Facts = QENAppStartFacts;

// A process started at 100 s whose first screen came `screenAfter` seconds later, with each fact
// named in `flipped` turned from its default.
Facts startWith(double screenAfter, std::initializer_list<bool Facts::*> flipped = {}) {
  Facts facts{.processStartTime = 100, .firstScreenTime = 100 + screenAfter};
  for (const auto fact : flipped)
    facts.*fact = !(facts.*fact);
  return facts;
}

TEST(AppStartType, EachKindOfStartIsToldFromTheHostsFacts) {
  const struct {
    const char* name;
    Facts facts;
    std::optional<Type> type;
  } table[] = {
      {"a fresh process for the user", startWith(0.8), Type::kCold},
      {"restored from saved state", startWith(0.8, {&Facts::restoredFromSavedState}), Type::kWarm},
      {"for a push, a screen later", startWith(300, {&Facts::startedForForeground}), Type::kWarm},
      {"a screen at the longest cold start", startWith(60), Type::kCold},
      {"a screen past the longest cold start", startWith(60.001), std::nullopt},
      {"no screen: a background task", Facts{.processStartTime = 100}, std::nullopt},
      {"a running process, a new screen", startWith(500, {&Facts::processWasRunning}), Type::kWarm},
      {"a running process, its screen to the front",
       startWith(500, {&Facts::processWasRunning, &Facts::screenWasCreated}), Type::kHot},
      {"prewarmed by the system", startWith(120, {&Facts::prewarmedBySystem}), Type::kPrewarmed},
  };
  for (const auto& row : table)
    EXPECT_EQ(QENClassifyAppStart(row.facts), row.type) << row.name;
}

// A screen before its process, or a time that is no time, is reported and gives no start.
TEST(AppStartType, ImpossibleFactsAreReportedAndGiveNone) {
  QENCapturedAssertions captured;
  EXPECT_EQ(QENClassifyAppStart(startWith(-1)), std::nullopt);
  EXPECT_EQ(QENClassifyAppStart(startWith(NAN)), std::nullopt);
  EXPECT_EQ(QENClassifyAppStart({.processStartTime = INFINITY, .firstScreenTime = 1}),
            std::nullopt);
  EXPECT_EQ(captured.messages().size(), 3u);
}

TEST(AppStartType, TheStartMetricCarriesItsTypeAndANonStartNoTag) {
  const auto cold = QENPerformanceMetric::initWithName("app_cold_start");
  EXPECT_EQ(QENTagAppStart(*cold, startWith(0.5)), Type::kCold);
  EXPECT_EQ(QENTest::Vocabulary::stringValueFromBinaryAnnotation(
                QENTest::find(cold->binaryAnnotations(), QENAppStartTypeTagKey)),
            "cold");
  const auto none = QENPerformanceMetric::initWithName("app_cold_start");
  EXPECT_EQ(QENTagAppStart(*none, startWith(90)), std::nullopt);
  EXPECT_EQ(QENTest::find(none->binaryAnnotations(), QENAppStartTypeTagKey), nullptr);
}

}  // namespace
