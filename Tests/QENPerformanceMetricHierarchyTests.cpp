#include <gtest/gtest.h>

#include <atomic>
#include <latch>
#include <thread>

#include "QENFoundation/QENMonotonicTime.h"
#include "QENFoundation/QENNotificationCenter.h"
#include "QENPerformanceMetric.h"
#include "Support/QENCapturedAssertions.h"

namespace {

using Metric = QENPerformanceMetric;

// A metric that manages its tree: it adopts every metric that starts while it listens.
class AdoptingMetric : public QENPerformanceMetric,
                       public QENPerformanceMetricFactories<AdoptingMetric> {
 public:
  using QENPerformanceMetricFactories<AdoptingMetric>::initWithName;
  using QENPerformanceMetricFactories<AdoptingMetric>::initLeafMetricWithName;
  using QENPerformanceMetric::QENPerformanceMetric;

  void addChildMetricIfNeeded(const std::shared_ptr<QENPerformanceMetric>& metric) override {
    ++offers;
    addChildMetric(metric);
  }
  std::atomic<int> offers{0};
};

TEST(MetricHierarchy, ARe_parentedChildIsReportedAndListedUnderBothParents) {
  QENCapturedAssertions captured;
  const auto first = Metric::initWithName("first", 1.0, 2.0);
  const auto second = Metric::initWithName("second");
  const auto child = Metric::initLeafMetricWithName("child", 1.0, 2.0);
  first->addChildMetric(child);
  const auto snapshot = first->childMetrics();
  second->addChildMetric(child);
  first->addChildMetric(Metric::initLeafMetricWithName("later"));

  first->addChildMetric(nullptr);
  EXPECT_EQ(captured.messages(),
            (std::vector<std::string>{"Child metric should not already have a parent.",
                                      "Metric should not be nil unless disabled"}));
  EXPECT_EQ(child->parentMetric(), second);
  EXPECT_EQ(first->childMetrics().front(), child);
  EXPECT_EQ(second->childMetrics().front(), child);
  EXPECT_EQ(snapshot.size(), 1u) << "a snapshot does not see later additions";
  EXPECT_EQ(first->childMetrics().size(), 2u);
  EXPECT_TRUE(child->childMetrics().empty());
  const auto spans = first->spansWithAppContext(QENPerformanceMetricAppContext("1", "x"));
  EXPECT_EQ(spans.at(1)->parent_id(), second->spanId()) << "exported under its second parent";
}

TEST(MetricHierarchy, LeavesNeitherPostNorListenAndBaseHooksAdoptNothing) {
  const auto leaf = Metric::initLeafMetricWithName("leaf");
  const auto managing = Metric::initWithName("managing");
  EXPECT_FALSE(leaf->shouldPostMetricWillStart() || leaf->shouldObserveMetricWillStart() ||
               leaf->isObservingMetricWillStart());
  EXPECT_TRUE(managing->shouldPostMetricWillStart() && managing->isObservingMetricWillStart());

  auto observer = std::make_shared<int>(0);
  std::vector<const QENObject*> posted;
  QENNotificationCenter::defaultCenter().addObserver(
      observer, QENPerformanceMetricWillStartNotification, nullptr,
      [&](const QENNotification& notification) { posted.push_back(notification.object.get()); });
  leaf->startMetric();
  const auto other = Metric::initWithName("other");
  other->startMetric();
  QENNotificationCenter::defaultCenter().removeObserver(observer.get());

  EXPECT_EQ(posted, (std::vector<const QENObject*>{other.get()}));
  EXPECT_TRUE(managing->childMetrics().empty());
  EXPECT_EQ(other->parentMetric(), nullptr);
  // A listener of the base form holds no registration: it could only ever return at once, and
  // must cost a start nothing. One that adopts takes its registration with it when it stops.
  const auto registrations = [] {
    return QENNotificationCenter::defaultCenter().registrationCount(
        QENPerformanceMetricWillStartNotification);
  };
  const std::size_t before = registrations();
  const auto baseForm = Metric::initWithName("base_form");
  EXPECT_TRUE(baseForm->isObservingMetricWillStart() && managing->isObservingMetricWillStart());
  EXPECT_EQ(registrations(), before);
  managing->stopObservingMetricWillStartNotificationsIfNeeded();
  EXPECT_FALSE(managing->isObservingMetricWillStart());
  EXPECT_EQ(registrations(), before);
  const auto adopting = AdoptingMetric::initWithName("adopting");
  EXPECT_EQ(registrations(), before + 1);
  adopting->stopObservingMetricWillStartNotificationsIfNeeded();
  EXPECT_EQ(registrations(), before);
  adopting->startObservingMetricWillStartNotificationsIfNeeded();
  EXPECT_EQ(registrations(), before + 1);
}

TEST(MetricHierarchy, TheFirstUnfinishedListenerAdoptsAStartingMetric) {
  const auto finishedListener = AdoptingMetric::initWithName("finished", 1.0, 2.0);
  const auto first = AdoptingMetric::initWithName("first");
  const auto second = AdoptingMetric::initWithName("second");
  static_assert(std::is_same_v<decltype(first), const std::shared_ptr<AdoptingMetric>>);
  // Posts its start, listens to no one.
  const auto starting = Metric::initWithName("starting", 1.0, false, true);

  starting->startMetric();
  EXPECT_EQ(finishedListener->offers, 0) << "a finished listener ignores will-start";
  EXPECT_EQ(first->offers, 1) << "an unstarted listener takes part";
  EXPECT_EQ(second->offers, 0) << "the starting metric already had a parent";
  EXPECT_EQ(starting->parentMetric(), first);
  // A listener that starts ignores itself.
  first->startMetric();
  EXPECT_EQ(first->offers, 1);
  EXPECT_EQ(second->offers, 1);
  EXPECT_EQ(first->parentMetric(), second);
}

TEST(MetricHierarchy, AChildThatWouldCloseACycleIsReportedAndNotAdded) {
  const QENCapturedAssertions assertions;
  const auto a = Metric::initWithName("a");
  const auto b = Metric::initWithName("b");
  const auto c = Metric::initWithName("c");
  a->addChildMetric(b);
  b->addChildMetric(c);
  c->addChildMetric(a);
  a->addChildMetric(a);
  EXPECT_EQ(assertions.messages(),
            std::vector<std::string>(
                2, "A metric cannot become a child of itself or of one of its descendants"));
  EXPECT_TRUE(c->childMetrics().empty());
  EXPECT_EQ(a->childMetrics(), Metric::MetricList{b});
  // A metric listed under two parents is no cycle.
  const auto d = Metric::initWithName("d");
  d->addChildMetric(c);
  EXPECT_EQ(d->childMetrics(), Metric::MetricList{c});
}

TEST(MetricHierarchy, TwoThreadsAddingEachMetricUnderTheOtherMakeNoCycle) {
  const QENCapturedAssertions assertions;
  for (int round = 0; round < 200; ++round) {
    const auto a = Metric::initLeafMetricWithName("a");
    const auto b = Metric::initLeafMetricWithName("b");
    std::latch ready(2);
    std::thread adder([&] {
      ready.arrive_and_wait();
      a->addChildMetric(b);
    });
    ready.arrive_and_wait();
    b->addChildMetric(a);
    adder.join();
    EXPECT_EQ(a->childMetrics().size() + b->childMetrics().size(), 1u);
    // Both are running: a cycle would deadlock two concurrent stops.
    a->startMetric();
    b->startMetric();
    std::thread stopper([&] { a->stopMetric(); });
    b->stopMetric();
    stopper.join();
    EXPECT_TRUE(a->isFinished() && b->isFinished());
  }
  EXPECT_EQ(assertions.messages().size(), 200u);
}

// Stop, export, invalidation, event routing and freeing each reach every level of a chain far
// deeper than a thread's stack could hold as nested calls, before they return.
TEST(MetricHierarchy, AChainOfAnyDepthIsStoppedExportedInvalidatedRoutedAndFreed) {
  auto root = Metric::initLeafMetricWithName("root");
  root->startMetric();
  std::shared_ptr<Metric> deepest = root;
  for (int depth = 0; depth < 100000; ++depth) {
    auto child = Metric::initLeafMetricWithName("link");
    child->startMetric();
    deepest->addChildMetric(child);
    deepest = std::move(child);
  }
  int offered = 0;
  deepest->setShouldCompleteBlock([&](std::uint64_t) { return ++offered > 0; });
  root->processPerformanceEventType(7, QENMonotonicTimeGetCurrent());
  EXPECT_EQ(offered, 1);
  EXPECT_TRUE(deepest->isFinished()) << "routed to the bottom and accepted there";
  const std::weak_ptr<Metric> secondDeepest = deepest->parentMetric();
  root->stopMetric();
  EXPECT_TRUE(secondDeepest.lock()->isFinished());
  const auto spans = root->spansWithAppContext(QENPerformanceMetricAppContext("1", "x"));
  ASSERT_EQ(spans.size(), 100001u);
  EXPECT_EQ(spans.back()->parent_id(), secondDeepest.lock()->spanId());
  root->invalidateWithReason(QENPerformanceMetricStopReasonUserAbort);
  EXPECT_EQ(deepest->invalidateReason(), QENPerformanceMetricStopReasonUserAbort);
  const std::weak_ptr<Metric> bottom = deepest;
  deepest.reset();
  const std::weak_ptr<Metric> top = root;
  root.reset();
  EXPECT_TRUE(top.expired());
  EXPECT_TRUE(bottom.expired());
}

}  // namespace
