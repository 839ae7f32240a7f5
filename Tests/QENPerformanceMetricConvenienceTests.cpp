#include <gtest/gtest.h>

#include "QENAppLifecycleObservers.h"
#include "QENApplication/QENApplicationLifecycle.h"
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

TEST(MetricConvenience, AnnotatesAppLifecycleChangesUntilRemoved) {
  const auto metric = Metric::initWithName("feed");
  metric->configureAppLifecycleNotificationObservation();
  QENApplicationLifecycle::postDidEnterBackground();
  QENApplicationLifecycle::postWillEnterForeground();
  QENApplicationLifecycle::postDidBecomeActive();
  QENApplicationLifecycle::postWillResignActive();
  metric->removeAppLifecycleNotificationObservation();
  QENApplicationLifecycle::postDidEnterBackground();

  std::string names;
  for (const auto& annotation : metric->annotations())
    names += annotation->value() + " ";
  EXPECT_EQ(names,
            "app.enter.background app.enter.foreground app.become.active app.resign.active ");
  // A metric destroyed while registered takes its entry with it at once.
  const std::size_t before = QENAppLifecycleObservers::shared().count();
  Metric::initWithName("forgotten")->configureAppLifecycleNotificationObservation();
  EXPECT_EQ(QENAppLifecycleObservers::shared().count(), before);
}

}  // namespace
