#include <gtest/gtest.h>

#include <cmath>

#include "QENFoundation/QENMonotonicTime.h"
#include "QENFrameMonitor.h"
#include "QENPerformanceMetric.h"
#include "QENScreenDisplay.h"
#include "Support/QENAnnotationReaders.h"
#include "Support/QENCapturedAssertions.h"

namespace {

constexpr double kNoReport = -1;

struct Step {
  double frameStart;  // seconds after the screen's creation
  double frameDuration;
  double fullyDrawnBefore = kNoReport;  // the app says so at this time, before the frame
};

// Each display span the screen got: its name, its end after the creation in milliseconds, and
// whether it timed out.
using Spans = std::vector<std::tuple<std::string, long, bool>>;

Spans displaySpansOf(const std::vector<Step>& steps, double timeout) {
  const double created = QENMonotonicTimeGetCurrent();
  const auto screen = QENPerformanceMetric::initWithName("profile_screen");
  screen->startMetricWithTime(created);
  const auto display = QENScreenDisplay::track(screen, created, timeout);
  for (const Step& step : steps) {
    if (step.fullyDrawnBefore != kNoReport) {
      display->reportFullyDrawn(created + step.fullyDrawnBefore);
    }
    QENFrameMonitor::shared().reportFrame(created + step.frameStart, step.frameDuration, 1.0 / 60);
  }
  Spans spans;
  for (const auto& child : screen->childMetrics()) {
    const bool timedOut =
        QENTest::find(child->binaryAnnotations(), "ui.load.stop_reason") != nullptr;
    EXPECT_EQ(child->startTime(), created);
    spans.emplace_back(*child->name(), std::lround((child->stopTime() - created) * 1000), timedOut);
  }
  return spans;
}

TEST(ScreenDisplay, EachDisplayEndsWithTheFirstFrameThatCouldShowIt) {
  const std::string initial(QENScreenDisplay::kInitialDisplayName);
  const std::string full(QENScreenDisplay::kFullDisplayName);
  const struct {
    const char* name;
    std::vector<Step> steps;
    Spans spans;
  } table[] = {
      {"a frame begun before the creation shows nothing of the screen",
       {{-0.005, 0.016}, {0, 0.020}, {0.400, 0.016}, {0.6, 0.016, 0.5}},
       {{initial, 20, false}, {full, 616, false}}},
      {"fully drawn said before the first frame: both end with it",
       {{0.010, 0.020, 0.005}, {0.040, 0.016}},
       {{initial, 30, false}, {full, 30, false}}},
      {"never said: the full display ends at the timeout",
       {{0.010, 0.020}, {0.9, 0.016}, {1.5, 0.016}},
       {{initial, 30, false}, {full, 1000, true}}},
      {"said after the timeout",
       {{0.010, 0.020}, {2.5, 0.016, 2}},
       {{initial, 30, false}, {full, 1000, true}}},
  };
  for (const auto& row : table) {
    EXPECT_EQ(displaySpansOf(row.steps, 1), row.spans) << row.name;
  }
}

TEST(ScreenDisplay, ANullScreenOrATimeoutOfNothingIsRefused) {
  const QENCapturedAssertions assertions;
  const auto screen = QENPerformanceMetric::initWithName("profile_screen");
  EXPECT_EQ(QENScreenDisplay::track(nullptr, 1, 30), nullptr);
  EXPECT_EQ(QENScreenDisplay::track(screen, 1, 0), nullptr);
  EXPECT_EQ(assertions.messages().size(), 2u);
}

}  // namespace
