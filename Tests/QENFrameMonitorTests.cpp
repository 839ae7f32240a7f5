#include <gtest/gtest.h>

#include <cmath>

#include "QENFoundation/QENMonotonicTime.h"
#include "QENFrameMonitor.h"
#include "QENPerformanceMetric.h"
#include "Support/QENAnnotationReaders.h"
#include "Support/QENCapturedAssertions.h"

namespace {

constexpr double k60Hz = 1.0 / 60;
constexpr double k120Hz = 1.0 / 120;

struct Frame {
  double start;  // seconds after the metric's start
  double duration;
  double expectedInterval;
};

// The values of frames.total, frames.slow, frames.frozen and frames.delay_ms, those there, of a
// metric that ran for `length` seconds while the frames were reported.
using Tags = std::vector<std::int64_t>;

Tags frameTagsOfAMetricThatSaw(const std::vector<Frame>& frames, double length = 2) {
  QENFrameMonitor& monitor = QENFrameMonitor::shared();
  const double start = QENMonotonicTimeGetCurrent();
  const auto metric = QENPerformanceMetric::initWithName("feed_render");
  metric->startMetricWithTime(start);
  for (const Frame& frame : frames) {
    monitor.reportFrame(start + frame.start, frame.duration, frame.expectedInterval);
  }
  metric->stopMetricWithTime(start + length);
  Tags tags;
  for (const char* key : {"frames.total", "frames.slow", "frames.frozen", "frames.delay_ms"}) {
    if (const auto value = QENTest::integerFor(metric->binaryAnnotations(), key)) {
      tags.push_back(*value);
    }
  }
  return tags;
}

TEST(FrameMonitor, AMetricCountsSlowAndFrozenFramesAgainstEachFramesOwnRefreshRate) {
  const struct {
    const char* name;
    std::vector<Frame> frames;
    double length;
    Tags tags;
  } table[] = {
      // 12 ms and 20 ms are slow at 120 Hz; 12 ms is on time at 60 Hz. Delays: 3.67 + 11.67 +
      // 791.67 ms, and without the 12 ms frame's 11.67 + 791.67 ms.
      {"at 120 Hz",
       {{0.1, 0.008, k120Hz}, {0.2, 0.012, k120Hz}, {0.3, 0.020, k120Hz}, {0.5, 0.8, k120Hz}},
       2,
       {4, 2, 1, 807}},
      {"the same frames as the display goes from 60 to 120 Hz",
       {{0.1, 0.008, k60Hz}, {0.2, 0.012, k60Hz}, {0.3, 0.020, k120Hz}, {0.5, 0.8, k120Hz}},
       2,
       {4, 1, 1, 803}},
      {"a hair over the interval, within the tolerance", {{0.1, 0.0088, k120Hz}}, 2, {1, 0, 0, 0}},
      {"frozen from 700 ms", {{0.1, 0.7, k60Hz}}, 2, {1, 0, 1, 683}},
      // Late from 0.9167 s to 1.2 s: 83 ms of it before the stop at 1 s.
      {"a slow frame straddling the stop", {{0.9, 0.3, k60Hz}}, 1, {1, 1, 0, 83}},
      // Late from -0.483 s to 0.3 s: 300 ms of it after the start.
      {"a frozen frame straddling the start", {{-0.5, 0.8, k60Hz}}, 1, {1, 0, 1, 300}},
      {"a slow frame reported late, all before the start", {{-0.3, 0.1, k60Hz}}, 1, {}},
  };
  for (const auto& row : table) {
    EXPECT_EQ(frameTagsOfAMetricThatSaw(row.frames, row.length), row.tags) << row.name;
  }
}

TEST(FrameMonitor, AFrameWithNoDurationOrNoRefreshRateIsReportedAndLeftOut) {
  const QENCapturedAssertions assertions;
  EXPECT_EQ(
      frameTagsOfAMetricThatSaw({{0.1, 0, k60Hz}, {0.2, 0.02, 0}, {0.3, std::nan(""), k60Hz}}),
      Tags{});
  EXPECT_EQ(assertions.messages().size(), 3u);
}

}  // namespace
