#include <gtest/gtest.h>

#include <cmath>
#include <future>
#include <stdexcept>
#include <thread>

#include "QENFoundation/QENMonotonicTime.h"
#include "QENFoundation/QENNotificationCenter.h"
#include "QENPerformanceMetric.h"
#include "Support/QENCapturedAssertions.h"

namespace {

using Metric = QENPerformanceMetric;

// Resolves with the `valid` flag and the thread of the first call of a completion callback.
struct CompletionProbe {
  std::promise<std::pair<bool, std::thread::id>> promise;
  std::future<std::pair<bool, std::thread::id>> future = promise.get_future();
  std::atomic<int> calls{0};

  Metric::CompletionBlock block() {
    return [this](bool valid) {
      if (++calls == 1)
        promise.set_value({valid, std::this_thread::get_id()});
    };
  }
};

TEST(MetricLifecycle, AFreshMetricIsUnstartedValidAndReportsNowPlusOne) {
  const auto metric = Metric::initWithName("fresh", 0.25);
  EXPECT_FALSE(metric->isStarted() || metric->isFinished() || metric->isInFlight());
  EXPECT_TRUE(metric->isValid());
  EXPECT_EQ((std::vector<std::int64_t>{metric->invalidateReason(), metric->metricCause(),
                                       metric->viewType(), metric->viewParameter(),
                                       metric->invalidatingQenLogEventType()}),
            std::vector<std::int64_t>(5, -1));
  EXPECT_EQ(metric->uploadFraction(), 0.25);
  for (int draw = 0; draw < 2000; ++draw) {  // a draw of 1.00 would come 20 times in 2000
    const double percent = Metric::initLeafMetricWithName("draw")->randomUploadFraction() * 100;
    ASSERT_TRUE(percent >= 0 && percent <= 99 && std::fabs(percent - std::round(percent)) < 1e-9)
        << percent;
  }
  const double before = QENMonotonicTimeGetCurrent();
  const double time = metric->metricTime();
  EXPECT_GE(time, before + 1.0);
  EXPECT_LE(time, QENMonotonicTimeGetCurrent() + 1.0);
}

TEST(MetricLifecycle, TheFirstStartWinsAndEveryStartPostsWillStart) {
  const auto metric = Metric::initWithName("feed");
  auto observer = std::make_shared<int>(0);
  int posts = 0;
  QENNotificationCenter::defaultCenter().addObserver(
      observer, QENPerformanceMetricWillStartNotification, metric.get(),
      [&](const QENNotification&) { ++posts; });
  const double now = QENMonotonicTimeGetCurrent();
  metric->startMetricWithTime(now);
  metric->startMetricWithTime(now + 1);
  EXPECT_EQ(metric->startTime(), now);
  EXPECT_EQ(posts, 2);
  EXPECT_TRUE(metric->isInFlight());
  QENNotificationCenter::defaultCenter().removeObserver(observer.get());
}

// Only the first stop after the start counts; one before the start is clamped to it.
TEST(MetricLifecycle, StopIsIgnoredBeforeStartAndAfterTheFirstStopAndClampedToTheStart) {
  QENCapturedAssertions captured;
  const auto metric = Metric::initLeafMetricWithName("leaf");
  CompletionProbe probe;
  metric->addCompletionBlock(probe.block());
  metric->stopMetric();
  EXPECT_EQ(metric->stopTime(), kUnsetTime);
  EXPECT_NE(metric->completionBlocks(), nullptr) << "no callback taken out by an ignored stop";
  const double now = QENMonotonicTimeGetCurrent();
  metric->startMetricWithTime(now);
  metric->stopMetricWithTime(now + 0.5);
  metric->stopMetricWithTime(now + 0.7);
  EXPECT_EQ(metric->stopTime(), now + 0.5);
  EXPECT_TRUE(probe.future.get().first);
  EXPECT_EQ(metric->completionBlocks(), nullptr);
  EXPECT_TRUE(captured.records().empty());

  const auto early = Metric::initLeafMetricWithName("leaf");
  early->startMetricWithTime(now);
  early->stopMetricWithTime(now - 2);
  EXPECT_EQ(early->stopTime(), now);
  EXPECT_EQ(early->metricTime(), 0.0);
  EXPECT_TRUE(early->isFinished());
  ASSERT_EQ(captured.records().size(), 1u);
  EXPECT_EQ(captured.records()[0].message,
            "Metric stop time must be greater than or equal to start time");
  EXPECT_EQ(captured.records()[0].method, "-[QENPerformanceMetric stopMetricWithTime:]");
}

TEST(MetricLifecycle, TimesFarFromNowAreReportedAndUsedAnywayButANaNStartIsIgnored) {
  QENCapturedAssertions captured;
  const auto metric = Metric::initLeafMetricWithName("leaf");
  const double now = QENMonotonicTimeGetCurrent();
  metric->startMetricWithTime(NAN);
  EXPECT_FALSE(metric->isStarted()) << "a NaN start would leave a metric that never finishes";
  metric->startMetricWithTime(now + 4000);
  metric->stopMetricWithTime(NAN);
  EXPECT_EQ(metric->startTime(), now + 4000);
  EXPECT_EQ(metric->stopTime(), now + 4000) << "NaN is not after the start: clamped to it";
  const std::string start =
      "Invalid parameter not satisfying: ABS(startTime - QENMonotonicTimeGetCurrent()) < 3600";
  EXPECT_EQ(captured.messages(),
            (std::vector<std::string>{
                start, start,
                "Invalid parameter not satisfying: ABS(stopTime - QENMonotonicTimeGetCurrent()) "
                "< 3600"}));
}

TEST(MetricLifecycle, CallbacksRunOnceInOrderOnTheGlobalQueueEvenPastOneThatThrows) {
  QENCapturedAssertions captured;
  const auto metric = Metric::initLeafMetricWithName("leaf");
  std::vector<int> order;
  metric->addCompletionBlock([&](bool) { order.push_back(1); });
  metric->addCompletionBlock([](bool) { throw std::runtime_error("host bug"); });
  metric->addCompletionBlock([&](bool) { order.push_back(2); });
  CompletionProbe probe;
  metric->addCompletionBlock(probe.block());
  metric->startMetric();
  metric->stopMetric();
  metric->invalidateWithReason(QENPerformanceMetricStopReasonServerError);
  const auto [valid, thread] = probe.future.get();
  EXPECT_TRUE(valid);
  EXPECT_NE(thread, std::this_thread::get_id());
  EXPECT_EQ(order, (std::vector<int>{1, 2}));
  EXPECT_EQ(probe.calls, 1);
  EXPECT_EQ(captured.messages(), std::vector<std::string>{"A completion callback threw: host bug"});

  // A list set as a whole replaces what was added, and a stop runs it.
  const auto replaced = Metric::initLeafMetricWithName("replaced");
  CompletionProbe setProbe;
  replaced->addCompletionBlock([](bool) { ADD_FAILURE() << "replaced"; });
  replaced->setCompletionBlocks(
      std::make_shared<const Metric::CompletionBlockList>(1, setProbe.block()));
  replaced->startMetric();
  replaced->stopMetric();
  EXPECT_TRUE(setProbe.future.get().first);

  // Added after the end: runs at once, here, with the validity at that moment.
  std::optional<std::pair<bool, std::thread::id>> late;
  metric->addCompletionBlock([&](bool valid) { late.emplace(valid, std::this_thread::get_id()); });
  EXPECT_EQ(late, std::pair(false, std::this_thread::get_id()));

  // An empty callback is a programmer error, reported and ignored.
  const auto running = Metric::initLeafMetricWithName("running");
  running->addCompletionBlock(nullptr);
  EXPECT_EQ(running->completionBlocks(), nullptr);
  EXPECT_EQ(captured.messages().back(), "The following expression must not evaluate to nil: block");
}

TEST(MetricLifecycle, InvalidatingAFinishedMetricChangesOnlyItsReasonAndReachesAllChildren) {
  const auto parent = Metric::initWithName("parent");
  const auto finishedChild = Metric::initLeafMetricWithName("finished");
  const auto runningChild = Metric::initLeafMetricWithName("running");
  parent->addChildMetric(finishedChild);
  parent->startMetric();
  finishedChild->startMetric();
  finishedChild->stopMetric();
  parent->stopMetric();
  runningChild->startMetric();
  parent->addChildMetric(runningChild);
  const double stopTime = parent->stopTime();
  CompletionProbe probe;
  parent->addCompletionBlock(probe.block());  // runs at once: finished and valid

  parent->invalidateWithReason(QENPerformanceMetricStopReasonServerError, 4701);
  EXPECT_FALSE(parent->isValid());
  EXPECT_EQ(parent->invalidatingQenLogEventType(), 4701);
  EXPECT_EQ(parent->stopTime(), stopTime);
  EXPECT_EQ(probe.calls, 1);
  EXPECT_EQ(finishedChild->invalidateReason(), 2);
  EXPECT_EQ(runningChild->invalidateReason(), 2);
  EXPECT_TRUE(runningChild->isFinished()) << "invalidation stops a running child now";
}

TEST(MetricLifecycle, InvalidationBeforeStartKeepsLaterCallbacksForever) {
  QENCapturedAssertions captured;
  const auto metric = Metric::initLeafMetricWithName("leaf");
  CompletionProbe early;
  metric->addCompletionBlock(early.block());
  metric->invalidateWithReason(QENPerformanceMetricStopReasonDefault);
  EXPECT_EQ(captured.messages(),
            (std::vector<std::string>{"QENPerformanceMetricStopReasonDefault should only be used "
                                      "to represent valid metrics"}));
  EXPECT_TRUE(metric->isValid()) << "the default reason keeps the metric valid";
  EXPECT_FALSE(early.future.get().first) << "but its callbacks still learn of an invalidation";

  metric->invalidate();
  EXPECT_FALSE(metric->isStarted() || metric->isFinished() || metric->isInFlight());
  EXPECT_FALSE(metric->isValid());
  CompletionProbe late;
  metric->addCompletionBlock(late.block());
  EXPECT_EQ(metric->completionBlocks()->size(), 1u) << "stored, and no stop will ever take it";
  EXPECT_EQ(late.calls, 0);
  metric->startMetricWithTime(metric->stopTime() + 1);
  EXPECT_TRUE(metric->isStarted());
  EXPECT_FALSE(metric->isFinished()) << "a start after the stored stop time";
}

TEST(MetricLifecycle, UploadFollowsTheWholePercentageDrawAndSkipsUnknownInvalidations) {
  for (int round = 0; round < 300; ++round) {
    const auto metric = Metric::initLeafMetricWithName("sampled");
    const auto rare = Metric::initWithName("rare", 0.01);
    EXPECT_EQ(rare->shouldUpload(), rare->randomUploadFraction() <= 0.01);
    EXPECT_FALSE(Metric::initWithName("never", 0.0)->shouldUpload());
    EXPECT_TRUE(metric->shouldUpload());
    metric->invalidateWithReasonAndQENLogEventType(QENPerformanceMetricStopReasonUserAbort, 8352);
    EXPECT_TRUE(metric->shouldUpload());
    EXPECT_EQ(metric->invalidatingQenLogEventType(), 8352);
    metric->invalidate();
    EXPECT_FALSE(metric->shouldUpload());
  }
}

TEST(MetricLifecycle, FactoriesSetTimesAndIdentifiersWithoutSideEffects) {
  const auto measured = Metric::initWithName("measured", 10.0, 12.5);
  EXPECT_TRUE(measured->isFinished() && measured->isObservingMetricWillStart());
  EXPECT_EQ(measured->metricTime(), 2.5);
  const auto leaf = Metric::initLeafMetricWithName("leaf", 3.0, 1.0);
  EXPECT_FALSE(leaf->isFinished() || leaf->isObservingMetricWillStart()) << "stored unchecked";
  const auto identified = Metric::initWithName("ids", std::int64_t{-7}, std::int64_t{42});
  EXPECT_EQ(identified->traceId(), -7);
  EXPECT_EQ(identified->spanId(), 42);
  identified->overrideMetricWithSpanId(100);
  EXPECT_EQ(identified->spanId(), 100);
  EXPECT_NE(Metric::initWithName("a")->traceId(), Metric::initWithName("b")->traceId());
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

}  // namespace
