#include <gtest/gtest.h>

#include "BinaryAnnotation+QENAdditions.h"
#include "QENAnimationMetric.h"
#include "QENDefaultContentTypePerformanceSignal.h"
#include "QENPerformanceSignal.h"
#include "QENScrollVelocityUtility.h"
#include "Support/QENCapturedAssertions.h"

namespace {

using Vocabulary = QENThrift::BinaryAnnotationQENAdditions;

TEST(AnimationMetric, AnnotatesSixteenBitCountsOrInvalidatesWhenOneIsMissing) {
  const auto animation = QENAnimationMetric::initWithName("feed_scroll");
  static_assert(std::is_same_v<decltype(animation), const std::shared_ptr<QENAnimationMetric>>);
  animation->setSmallDropEvents(0);
  animation->setLargeDropEvents(65536);
  animation->setTotalFramesDropped(32768);
  animation->setTotalFramesRendered(70000);
  animation->startMetric();
  animation->stopMetric();
  EXPECT_TRUE(animation->isFinished() && animation->isValid());
  std::vector<std::pair<std::string, std::int64_t>> annotations;
  for (const auto& annotation : animation->binaryAnnotations()) {
    annotations.emplace_back(annotation->key(),
                             Vocabulary::int64ValueFromBinaryAnnotation(annotation) >> 48);
  }
  EXPECT_EQ(annotations,
            (std::vector<std::pair<std::string, std::int64_t>>{{"small_frame_drop_count", 0},
                                                               {"large_frame_drop_count", 0},
                                                               {"total_frames_dropped", -32768},
                                                               {"total_frames_rendered", 4464}}));

  QENCapturedAssertions captured;
  const auto incomplete = QENAnimationMetric::initWithName("feed_scroll");
  incomplete->setSmallDropEvents(1);
  incomplete->setLargeDropEvents(1);
  incomplete->setTotalFramesDropped(1);
  incomplete->startMetric();
  incomplete->stopMetric();
  EXPECT_EQ(captured.messages(),
            (std::vector<std::string>{
                "Ended without setting smallDropEvents, largeDropEvents or droppedFrames"}));
  EXPECT_EQ(incomplete->invalidateReason(), QENPerformanceMetricStopReasonUnknown);
  EXPECT_TRUE(incomplete->binaryAnnotations().empty());
}

// Records what the utility reports.
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
  auto destroyed = std::make_shared<RecordingObserver>();
  utility.addEventObserver(destroyed);
  utility.addEventObserver(observer);
  destroyed.reset();
  FakeScrollView view;
  utility.scrollViewDidScroll(view);  // not scrolling yet: ignored
  utility.scrollingStarted();
  utility.scrollViewDidScroll(view);
  EXPECT_EQ(utility.minScrollVelocity(), QENScrollVelocityUtility::kResetMinimum);
  EXPECT_EQ(utility.maxScrollVelocity(), QENScrollVelocityUtility::kResetMaximum);
  for (const double offset : {4.0, 8.0, 12.0}) {
    now += 0.1;
    view.offset = offset;
    utility.scrollViewDidScroll(view);
    if (offset < 12) {
      EXPECT_EQ(utility.lastScrollTime(), 0.0) << "the reference point stays below the threshold";
    }
  }
  EXPECT_NEAR(utility.lastScrollVelocity(), 40, 1e-9);
  EXPECT_NEAR(utility.minScrollVelocity(), 40, 1e-9);
  EXPECT_NEAR(utility.maxScrollVelocity(), 40, 1e-9);
  EXPECT_EQ(utility.lastScrollContentOffsetY(), 12);
  utility.scrollViewDidScroll(view);  // no time passed: no report
  now += 0.5;
  view.offset = 2;  // upwards: still a positive velocity
  utility.scrollViewDidScroll(view);
  utility.scrollingStopped();
  ASSERT_EQ(observer->events.size(), 7u);
  EXPECT_EQ(observer->events[0], -1);
  EXPECT_EQ(observer->events[1], 0.0);
  for (int index = 2; index <= 4; ++index) {
    EXPECT_NEAR(observer->events[index], 40, 1e-9);
  }
  EXPECT_NEAR(observer->events[5], 20, 1e-9);
  EXPECT_EQ(observer->events[6], -2);
  EXPECT_EQ(utility.lastScrollVelocity(), 0.0) << "reset before the stop is reported";

  // Dragged again before the last scroll stopped: the new scroll starts afresh too.
  utility.scrollingStarted();
  for (const double offset : {30.0, 45.0}) {
    now += 0.1;
    view.offset = offset;
    utility.scrollViewDidScroll(view);
  }
  utility.scrollingStarted();
  EXPECT_EQ(utility.maxScrollVelocity(), QENScrollVelocityUtility::kResetMaximum);
  EXPECT_EQ(utility.lastScrollTime(), -1.0);
}

TEST(ContentTypeSignal, SubtractsOnlyWithoutShortfallAndMergesWithWraparound) {
  using Signal = QENDefaultContentTypePerformanceSignal;
  const auto five = std::make_shared<const Signal>(5, 0, 0, 0, 0, 0, 0, 0, 0);
  const auto difference =
      std::dynamic_pointer_cast<const Signal>(five->signalBySubstractingFromSignal(five));
  ASSERT_NE(difference, nullptr);
  EXPECT_EQ(difference->counts(), Signal::Counts{});
  const auto receiver = std::make_shared<const Signal>(5, 1, 0, 0, 0, 0, 0, 0, 0);
  EXPECT_EQ(receiver->signalBySubstractingFromSignal(
                std::make_shared<const Signal>(4, 2, 0, 0, 0, 0, 0, 0, 0)),
            nullptr);
  EXPECT_EQ(std::dynamic_pointer_cast<const Signal>(
                receiver->signalBySubstractingFromSignal(std::make_shared<const Signal>()))
                ->counts(),
            receiver->counts());

  // Another implementation of the interface.
  struct Foreign : QENContentTypePerformanceSignal {
    Pointer signalBySubstractingFromSignal(const Pointer&) const override { return nullptr; }
    Pointer signalByMergingWithSignal(const Pointer&) const override { return nullptr; }
  };
  const auto foreign = std::make_shared<const Foreign>();
  EXPECT_EQ(receiver->signalBySubstractingFromSignal(foreign), nullptr);
  EXPECT_EQ(std::dynamic_pointer_cast<const Signal>(receiver->signalByMergingWithSignal(foreign))
                ->counts(),
            receiver->counts());
  const auto largest = std::make_shared<const Signal>(UINT64_MAX, 0, 0, 0, 0, 0, 0, 0, 2);
  const auto merged =
      std::dynamic_pointer_cast<const Signal>(largest->signalByMergingWithSignal(receiver));
  EXPECT_EQ(merged->modelCount(), 4u) << "wraps around";
  EXPECT_EQ(merged->videoStoryQenCount(), 1u);
  EXPECT_EQ(merged->otherStoryCount(), 2u);
}

TEST(VideoPreloadSignal, RoundsItsDurationAndBuildsB3HeadersForTheCdnChildSpan) {
  const auto url = QENURL::URLWithString("https://video.example.com/v.m3u8");
  const auto signal = QENPerformanceSignal::initWithVideoUrl(url, std::int64_t{255}, false, false);
  EXPECT_FALSE(signal->isStopped());
  signal->setIsCancelled(false);
  EXPECT_TRUE(signal->isStopped());
  EXPECT_FALSE(signal->isCancelled());
  signal->setStartTime(0.0);
  signal->setStopTime(2.5e-6);
  EXPECT_EQ(signal->getPreloadDuration(), 0.000003);
  signal->setStopTime(1.4e-6);
  EXPECT_EQ(signal->getPreloadDuration(), 0.000001);

  const auto headers = signal->getHeaderFields();
  EXPECT_EQ(headers.size(), 3u);
  EXPECT_EQ(headers.at("X-B3-TraceId"), "00000000000000ff");
  const auto sibling = QENPerformanceSignal::initWithVideoUrl(url, std::int64_t{255}, false, true);
  const auto siblingHeaders = sibling->getHeaderFields();
  EXPECT_EQ(siblingHeaders.size(), 4u);
  EXPECT_EQ(siblingHeaders.at("X-B3-Flags"), "1");
  EXPECT_EQ(siblingHeaders.at("X-B3-TraceId"), headers.at("X-B3-TraceId"));
  EXPECT_NE(siblingHeaders.at("X-B3-ParentSpanId"), headers.at("X-B3-ParentSpanId"));
  EXPECT_NE(siblingHeaders.at("X-B3-SpanId"), headers.at("X-B3-SpanId"));
  EXPECT_EQ(headers.at("X-B3-SpanId").size(), 16u);

  const auto ready = QENPerformanceSignal::initWithVideoUrl(url, std::int64_t{1}, false, false);
  ready->setIsReadyToPlay(true);
  EXPECT_TRUE(ready->isReadyToPlay() && ready->isStopped()) << "ready to play ends the preload";

  const auto forTest = QENPerformanceSignal::initWithVideoUrlForTest(url, "session");
  EXPECT_TRUE(forTest->isStopped());
  EXPECT_GE(forTest->getPreloadDuration(), 0.0) << "started and stopped now";
  EXPECT_EQ(forTest->getHeaderFields().size(), 3u) << "no CDN logging";
  EXPECT_FALSE(forTest->isCachedAsset());
  EXPECT_EQ(forTest->playbackSessionId(), "session");
}

}  // namespace
