#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

#include "QENFoundation/QENMonotonicTime.h"
#include "QENPerformanceMetric.h"

namespace {

using Metric = QENPerformanceMetric;

TEST(MetricClassSettings, KeepWhatTheHostSetsThem) {
  EXPECT_TRUE(Metric::shouldCheckPerformanceTestLogging());
  EXPECT_FALSE(Metric::enablePerformanceTestLogging());
  Metric::setShouldCheckPerformanceTestLogging(false);
  Metric::setEnablePerformanceTestLogging(true);
  EXPECT_FALSE(Metric::shouldCheckPerformanceTestLogging());
  EXPECT_TRUE(Metric::enablePerformanceTestLogging());
  Metric::setShouldCheckPerformanceTestLogging(true);
  Metric::setEnablePerformanceTestLogging(false);
}

TEST(MetricFactories, CreateWithABlockMeasuresTheWorkOnce) {
  int runs = 0;
  double workTime = 0;
  const auto metric = Metric::createWithName("decode", [&] {
    ++runs;
    workTime = QENMonotonicTimeGetCurrent();
  });
  EXPECT_EQ(runs, 1);
  EXPECT_TRUE(metric->isFinished() && metric->isValid());
  EXPECT_LE(metric->startTime(), workTime);
  EXPECT_GE(metric->stopTime(), workTime);
  EXPECT_FALSE(metric->shouldPostMetricWillStart() || metric->isObservingMetricWillStart());
  const auto timed = Metric::createWithName("timed", 5.0, 4.0);
  EXPECT_EQ(timed->startTime(), 5.0);
  EXPECT_EQ(timed->stopTime(), 4.0);
}

TEST(MetricDebugDescription, PrintsOneIndentedLinePerMetricInInsertionOrder) {
  const auto root = Metric::initWithName("root", 1.5, 2.75);
  const auto child = Metric::initLeafMetricWithName("child", 2.0, 2.5);
  root->addChildMetric(child);
  auto event = std::make_shared<QENThrift::Event>();
  event->setEventType(102);
  child->setInvalidatingEvent(event);
  child->setInvalidateReason(QENPerformanceMetricStopReasonClientError);
  EXPECT_EQ(root->debugDescription(),
            "Metric: root; Stop reason: Complete; Timing: 1.250000 (1.500000 - 2.750000); "
            "Invalidating event: nil\n"
            "  Metric: child; Stop reason: ClientError; Timing: 0.500000 (2.000000 - 2.500000); "
            "Invalidating event: Event(eventType:102,context:unset)\n");
  for (const auto& [reason, name] : std::vector<std::pair<std::int64_t, std::string>>{
           {0, "Unknown"}, {4, "ResponseTimeout"}, {42, "Unknown"}, {-2, "Unknown"}})
    EXPECT_EQ(Metric::debugNameForStopReason(reason), name) << reason;
}

}  // namespace
