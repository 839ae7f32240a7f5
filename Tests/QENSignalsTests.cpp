#include <gtest/gtest.h>

#include "QENAnimationMetric.h"
#include "QENPerformanceSignal.h"
#include "QENScrollVelocityUtility.h"
#include "Support/QENAnnotationReaders.h"
#include "Support/QENCapturedAssertions.h"

namespace {

TEST(AnimationMetric, AnnotatesSixteenBitCountsOrInvalidatesWhenOneIsMissing) {
  QENCapturedAssertions captured;
  const auto animation = QENAnimationMetric::initWithName("feed_scroll");
  animation->setSmallDropEvents(0);
  animation->setLargeDropEvents(65536);
  animation->setTotalFramesDropped(32768);
  animation->setTotalFramesRendered(70000);
  const auto incomplete = QENAnimationMetric::initWithName("feed_scroll");
  incomplete->setSmallDropEvents(1);
  incomplete->setLargeDropEvents(1);
  incomplete->setTotalFramesDropped(1);
  for (const auto& metric : {animation, incomplete}) {
    metric->startMetric();
    metric->stopMetric();
  }
  EXPECT_TRUE(animation->isValid());
  EXPECT_EQ(QENTest::integersOf(animation->binaryAnnotations()),
            (std::vector<std::pair<std::string, std::int64_t>>{{"small_frame_drop_count", 0},
                                                               {"large_frame_drop_count", 0},
                                                               {"total_frames_dropped", -32768},
                                                               {"total_frames_rendered", 4464}}));
  EXPECT_EQ(captured.messages(),
            (std::vector<std::string>{
                "Ended without setting smallDropEvents, largeDropEvents or droppedFrames"}));
  EXPECT_EQ(incomplete->invalidateReason(), QENPerformanceMetricStopReasonUnknown);
  EXPECT_TRUE(incomplete->binaryAnnotations().empty());
}

// Records what the utility reports: -1 a start, -2 a stop, else a velocity.
class RecordingObserver : public QENScrollVelocityEventObserver {
 public:
  void scrollVelocityUtilityScrollViewDidStartScrolling(QENScrollVelocityUtility&) override {
    events.push_back(-1);
  }
  void scrollVelocityUtility(QENScrollVelocityUtility&, double velocity) override {
    events.push_back(velocity);
  }
  void scrollVelocityUtilityScrollViewDidStopScrolling(QENScrollVelocityUtility&) override {
    events.push_back(-2);
  }
  std::vector<double> events;
};

struct FakeScrollView {
  double offset = 0;
  double contentOffsetY() const { return offset; }
};

TEST(ScrollVelocityUtility, MeasuresFromTheReferencePointUntilTheThresholdMovesIt) {
  double now = 0.0;  // a clock at zero is a time like any other
  QENScrollVelocityUtility utility(10, [&] { return now; });
  auto observer = std::make_shared<RecordingObserver>();
  utility.addEventObserver(std::make_shared<RecordingObserver>());  // gone at once
  utility.addEventObserver(observer);
  FakeScrollView view;
  const auto scrollTo = [&](double offset, double after) {
    now += after;
    view.offset = offset;
    utility.scrollViewDidScroll(view);
  };
  scrollTo(0, 0);  // not scrolling yet: ignored
  utility.scrollingStarted();
  scrollTo(0, 0);
  EXPECT_EQ(utility.maxScrollVelocity(), QENScrollVelocityUtility::kResetMaximum);
  scrollTo(4, 0.1);
  scrollTo(8, 0.1);
  EXPECT_EQ(utility.lastScrollTime(), 0.0) << "the reference point stays below the threshold";
  scrollTo(12, 0.1);
  EXPECT_NEAR(utility.minScrollVelocity(), 40, 1e-9);
  EXPECT_NEAR(utility.maxScrollVelocity(), 40, 1e-9);
  EXPECT_EQ(utility.lastScrollContentOffsetY(), 12);
  scrollTo(12, 0);   // no time passed: no report
  scrollTo(2, 0.5);  // upwards: still a positive velocity
  utility.scrollingStopped();
  const std::vector<double> expected = {-1, 0, 40, 40, 40, 20, -2};
  ASSERT_EQ(observer->events.size(), expected.size());
  for (std::size_t index = 0; index < expected.size(); ++index)
    EXPECT_NEAR(observer->events[index], expected[index], 1e-9) << index;
  EXPECT_EQ(utility.lastScrollVelocity(), 0.0) << "reset before the stop is reported";

  // Dragged again before the last scroll stopped: the new scroll starts afresh too.
  utility.scrollingStarted();
  scrollTo(30, 0.1);
  scrollTo(45, 0.1);
  utility.scrollingStarted();
  EXPECT_EQ(utility.maxScrollVelocity(), QENScrollVelocityUtility::kResetMaximum);
  EXPECT_EQ(utility.lastScrollTime(), -1.0);
}

TEST(VideoPreloadSignal, RoundsItsDurationAndBuildsB3HeadersForTheCdnChildSpan) {
  const auto url = QENURL::URLWithString("https://video.example.com/v.m3u8");
  const auto signal = QENPerformanceSignal::initWithVideoUrl(url, std::int64_t{255}, false, false);
  EXPECT_FALSE(signal->isStopped());
  signal->setIsCancelled(false);
  EXPECT_TRUE(signal->isStopped() && !signal->isCancelled());
  signal->setStartTime(0.0);
  signal->setStopTime(2.5e-6);
  EXPECT_EQ(signal->getPreloadDuration(), 0.000003);
  signal->setStopTime(1.4e-6);
  EXPECT_EQ(signal->getPreloadDuration(), 0.000001);

  const auto headers = signal->getHeaderFields();
  EXPECT_EQ(headers.size(), 3u);
  EXPECT_EQ(headers.at("X-B3-TraceId"), "00000000000000ff");
  EXPECT_EQ(headers.at("X-B3-SpanId").size(), 16u);
  const auto sibling = QENPerformanceSignal::initWithVideoUrl(url, std::int64_t{255}, false, true);
  auto siblingHeaders = sibling->getHeaderFields();
  EXPECT_NE(siblingHeaders.at("X-B3-SpanId"), headers.at("X-B3-SpanId"));
  for (const char* own : {"X-B3-SpanId", "X-B3-ParentSpanId"})
    siblingHeaders[own] = headers.at(own);
  EXPECT_EQ(siblingHeaders.at("X-B3-Flags"), "1") << "its CDN logs it";
  siblingHeaders.erase("X-B3-Flags");
  EXPECT_EQ(siblingHeaders, headers) << "the same trace";

  const auto ready = QENPerformanceSignal::initWithVideoUrl(url, std::int64_t{1}, false, false);
  ready->setIsReadyToPlay(true);
  EXPECT_TRUE(ready->isStopped()) << "ready to play ends the preload";
  const auto forTest = QENPerformanceSignal::initWithVideoUrlForTest(url, "session");
  EXPECT_TRUE(forTest->isStopped() && !forTest->isCachedAsset());
  EXPECT_EQ(forTest->startTime(), forTest->stopTime()) << "started and stopped at once";
  EXPECT_EQ(forTest->getHeaderFields().size(), 3u) << "no CDN logging";
  EXPECT_EQ(forTest->playbackSessionId(), "session");
}

}  // namespace
