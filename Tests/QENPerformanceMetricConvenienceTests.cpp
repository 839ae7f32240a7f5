#include <gtest/gtest.h>

#include "QENAppLifecycleObservers.h"
#include "QENApplication/QENApplicationLifecycle.h"
#include "QENFoundation/QENMonotonicTime.h"
#include "QENFoundation/QENNotificationCenter.h"
#include "QENPerformanceMetric.h"
#include "Support/QENAnnotationReaders.h"
#include "Support/QENCapturedAssertions.h"

namespace {

using Metric = QENPerformanceMetric;
std::vector<std::pair<std::string, std::int64_t>> keysAndValues(const Metric& metric) {
  return QENTest::integersOf(metric.binaryAnnotations());
}

TEST(MetricConvenience, AddsResultAnnotationsAndReportsThemOnUwtMetrics) {
  QENCapturedAssertions captured;
  const auto subspan = Metric::initLeafMetricWithName("feed_fetch");
  subspan->invalidateWithReason(QENPerformanceMetricStopReasonUserAbort);
  subspan->addResultAndInvalidationAnnotations();
  EXPECT_EQ(keysAndValues(*subspan), (std::vector<std::pair<std::string, std::int64_t>>{
                                         {"uwt_result", 2}, {"uwt_result_reason", 1}}));
  EXPECT_TRUE(captured.records().empty());

  Metric::setUwtMetricNames(Metric::MetricNameSet{"home_feed_render"});
  const auto uwt = Metric::initLeafMetricWithName("home_feed_render");
  uwt->invalidateWithReason(QENPerformanceMetricStopReasonUserAbort, 4701);
  uwt->addResultAndInvalidationAnnotations();
  ASSERT_EQ(captured.records().size(), 1u);
  EXPECT_EQ(captured.records()[0].message.rfind(
                "UWT metrics should rely on -[QENPerformanceMetric(Spans) "
                "setParametersForTopLevel:span:withAppContext:]",
                0),
            0u);
  EXPECT_EQ(keysAndValues(*uwt),
            (std::vector<std::pair<std::string, std::int64_t>>{
                {"uwt_result", 2}, {"uwt_result_reason", 1}, {"uwt_invalidate_event", 4701}}));
}

TEST(MetricConvenience, APreloadedMetricLastsOneMillisecondAndSaysSo) {
  const auto metric = Metric::initLeafMetricWithName("feed");
  metric->markMetricAsPreloaded();
  const auto span = metric->spansWithAppContext({std::nullopt, "ios"})[0];
  EXPECT_EQ(span->duration(), 1000);
  const auto annotations = metric->annotations();
  ASSERT_EQ(annotations.size(), 1u);
  EXPECT_EQ(annotations[0]->value(), "metric_preloaded");
  EXPECT_EQ(annotations[0]->timestamp(), span->timestamp()) << "at the metric's start";
}

TEST(MetricConvenience, AnnotatesAppLifecycleChangesUntilRemoved) {
  const auto metric = Metric::initWithName("feed");
  metric->configureAppLifecycleNotificationObservation();
  QENApplicationLifecycle::postDidEnterBackground();
  QENApplicationLifecycle::postWillEnterForeground();
  QENApplicationLifecycle::postDidBecomeActive();
  QENApplicationLifecycle::postWillResignActive();
  metric->removeAppLifecycleNotificationObservation();
  QENApplicationLifecycle::postDidEnterBackground();

  std::vector<std::string> names;
  for (const auto& annotation : metric->annotations()) {
    names.push_back(annotation->value());
  }
  EXPECT_EQ(names, (std::vector<std::string>{"app.enter.background", "app.enter.foreground",
                                             "app.become.active", "app.resign.active"}));
  // A metric destroyed while registered takes its entry with it at once; the process's own
  // registration, one per notification, serves every observing metric.
  const auto& observers = QENAppLifecycleObservers::shared();
  const std::size_t before = observers.count();
  Metric::initWithName("forgotten")->configureAppLifecycleNotificationObservation();
  EXPECT_EQ(observers.count(), before);
  const auto second = Metric::initWithName("second");
  second->configureAppLifecycleNotificationObservation();
  EXPECT_EQ(observers.count(), before + 1);
  EXPECT_EQ(QENNotificationCenter::defaultCenter().registrationCount(
                UIApplicationDidBecomeActiveNotification),
            1u);
  QENApplicationLifecycle::postDidEnterBackground();
  EXPECT_EQ(second->annotations().size(), 1u);
}

TEST(MetricConvenience, StartsAndStopsAtWallClockDates) {
  const auto metric = Metric::initLeafMetricWithName("dated");
  const QENDate start = QENDate::date();
  metric->startMetricWithDate(start, QENDate::dateWithTimeIntervalSinceReferenceDate(
                                         start.timeIntervalSinceReferenceDate() + 0.25));
  EXPECT_NEAR(metric->startTime(), start.monotonicTime(), 1e-9);
  EXPECT_NEAR(metric->metricTime(), 0.25, 1e-6);
}

}  // namespace
