#include <gtest/gtest.h>

#include <future>
#include <stdexcept>
#include <utility>

#include "QENFoundation/QENMonotonicTime.h"
#include "QENPerformanceMetric.h"
#include "Support/QENAnnotationReaders.h"
#include "Support/QENCapturedAssertions.h"

namespace {

using Metric = QENPerformanceMetric;
using QENTest::eventOfType;
using QENTest::keysOf;
using QENThrift::AnnotationType;

Metric::BinaryAnnotationPointer binary(std::string key, bool withValue = true) {
  return std::make_shared<const QENThrift::BinaryAnnotation>(
      std::move(key),
      withValue ? std::optional(QENThrift::BinaryAnnotation::Bytes{std::byte{1}}) : std::nullopt,
      AnnotationType::BOOL, nullptr);
}

TEST(MetricAnnotations, AbsentEntriesAreReportedAndEntriesWithoutValueDroppedSilently) {
  QENCapturedAssertions captured;
  const auto metric = Metric::initLeafMetricWithName("leaf");
  metric->addAnnotation(nullptr);
  metric->addBinaryAnnotation(nullptr);
  metric->addBinaryAnnotation(binary("no_value", false));
  EXPECT_EQ(captured.messages(),
            (std::vector<std::string>{"Assertion should not have been reached",
                                      "Assertion should not have been reached"}));
  EXPECT_TRUE(metric->binaryAnnotations().empty());

  metric->addBinaryAnnotation(binary("single"));
  const auto snapshot = metric->binaryAnnotations();
  const std::vector<Metric::BinaryAnnotationPointer> list = {
      binary("first"), binary("second", false), nullptr, binary("third")};
  metric->addBinaryAnnotations(list);
  metric->addAnnotation(std::make_shared<const QENThrift::Annotation>(1, "cs", nullptr));
  EXPECT_EQ(keysOf(metric->binaryAnnotations()),
            (std::vector<std::string>{"single", "first", "third"}));
  EXPECT_EQ(keysOf(snapshot), (std::vector<std::string>{"single"}));
  EXPECT_EQ(metric->annotations().size(), 1u);
  EXPECT_EQ(captured.records().size(), 2u);
}

// Whether another thread can take the metric's lock now.
bool isLockFreeElsewhere(const Metric& metric) {
  return std::async(std::launch::async,
                    [&] {
                      const bool taken = metric.propertyLock().try_lock();
                      if (taken)
                        metric.propertyLock().unlock();
                      return taken;
                    })
      .get();
}

TEST(MetricEventRouting, AContextEventInvalidatesOnlyTheSubtreeThatAcceptsIt) {
  const auto root = Metric::initWithName("root");
  const auto child = Metric::initWithName("child");
  const auto sibling = Metric::initLeafMetricWithName("sibling");
  const auto grandchild = Metric::initWithName("grandchild");
  const auto greatGrandchild = Metric::initLeafMetricWithName("great_grandchild");
  root->addChildMetric(child);
  root->addChildMetric(sibling);
  child->addChildMetric(grandchild);
  grandchild->addChildMetric(greatGrandchild);
  std::atomic<int> offersToSibling{0};
  sibling->setShouldInvalidateBlock([&](const Metric::EventPointer&) {
    ++offersToSibling;
    return false;
  });
  grandchild->setShouldInvalidateBlock(
      [](const Metric::EventPointer& event) { return event && event->eventType() == 4701; });

  const auto event = eventOfType(4701);
  root->processContextLoggingEvent(event);
  EXPECT_EQ(grandchild->invalidateReason(), QENPerformanceMetricStopReasonUserAbort);
  EXPECT_EQ(greatGrandchild->invalidateReason(), QENPerformanceMetricStopReasonUserAbort);
  EXPECT_EQ(grandchild->invalidatingEvent(), event);
  EXPECT_EQ(greatGrandchild->invalidatingEvent(), nullptr);
  EXPECT_TRUE(root->isValid() && child->isValid() && sibling->isValid());
  EXPECT_EQ(offersToSibling, 1);
}

TEST(MetricEventRouting, APerformanceEventStopsTheAcceptingRootAndThenPassesToChildren) {
  const auto root = Metric::initWithName("root");
  const auto running = Metric::initLeafMetricWithName("running");
  const auto unstarted = Metric::initLeafMetricWithName("unstarted");
  root->addChildMetric(running);
  root->addChildMetric(unstarted);
  std::atomic<int> offersToChild{0};
  unstarted->setShouldCompleteBlock([&](std::uint64_t) {
    ++offersToChild;
    return false;
  });
  root->setShouldCompleteBlock([](std::uint64_t type) { return type == 77; });
  const double now = QENMonotonicTimeGetCurrent();
  root->startMetricWithTime(now - 3);
  running->startMetricWithTime(now - 2);

  root->processPerformanceEventType(77, now - 1);
  EXPECT_EQ(root->stopTime(), now - 1);
  EXPECT_EQ(root->completingEvent(), 77u);
  EXPECT_GE(running->stopTime(), now) << "children stop at the current clock reading";
  EXPECT_EQ(unstarted->stopTime(), kUnsetTime) << "a child never started is not stopped";
  EXPECT_EQ(offersToChild, 0) << "an accepted event goes no further";

  root->processPerformanceEventType(77, now);
  EXPECT_EQ(offersToChild, 1) << "a finished root has no callback left and passes events on";
}

TEST(MetricEventRouting, RoutesToASnapshotAndCallsDecidersOutsideTheLock) {
  const auto root = Metric::initWithName("root");
  const auto first = Metric::initLeafMetricWithName("first");
  const auto added = Metric::initLeafMetricWithName("added_while_routing");
  root->addChildMetric(first);
  bool lockFreeDuringDecision = false;
  first->setShouldInvalidateBlock([&](const Metric::EventPointer&) {
    root->addChildMetric(added);
    lockFreeDuringDecision = isLockFreeElsewhere(*first);
    return false;
  });
  bool addedWasOffered = false;
  added->setShouldInvalidateBlock([&](const Metric::EventPointer&) {
    addedWasOffered = true;
    return false;
  });
  root->processContextLoggingEvent(eventOfType(1));
  EXPECT_TRUE(lockFreeDuringDecision);
  EXPECT_FALSE(addedWasOffered);
  root->processContextLoggingEvent(eventOfType(1));
  EXPECT_TRUE(addedWasOffered);
}

// A deciding callback that throws propagates to the caller and leaves every metric of the tree
// as usable as before: the same metric accepts the next event.
TEST(MetricEventRouting, ADeciderThatThrowsPropagatesAndLeavesTheTreeUsable) {
  const auto root = Metric::initWithName("root");
  const auto child = Metric::initWithName("child");
  const auto grandchild = Metric::initLeafMetricWithName("grandchild");
  root->addChildMetric(child);
  child->addChildMetric(grandchild);
  bool throwNext = true;
  grandchild->setShouldInvalidateBlock([&](const Metric::EventPointer&) {
    if (std::exchange(throwNext, false)) {
      throw std::runtime_error("host bug");
    }
    return true;
  });
  grandchild->setShouldCompleteBlock([&](std::uint64_t) -> bool { throw 42; });
  EXPECT_THROW(root->processContextLoggingEvent(eventOfType(1)), std::runtime_error);
  EXPECT_THROW(root->processPerformanceEventType(9, QENMonotonicTimeGetCurrent()), int);
  EXPECT_TRUE(grandchild->isValid());
  root->processContextLoggingEvent(eventOfType(1));
  EXPECT_EQ(grandchild->invalidateReason(), QENPerformanceMetricStopReasonUserAbort);
  EXPECT_TRUE(root->isValid() && child->isValid());
  EXPECT_TRUE(isLockFreeElsewhere(*grandchild)) << "no lock is left held by the throw";
}

}  // namespace
