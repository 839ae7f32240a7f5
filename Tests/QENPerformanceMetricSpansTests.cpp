#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <limits>

#include "QENFoundation/QENMonotonicTime.h"
#include "QENImageDownloadPerformanceMetricManager.h"
#include "QENPerformanceMetric.h"
#include "Span+DebugDescription.h"
#include "Support/QENAnnotationReaders.h"
#include "Support/QENCapturedAssertions.h"

namespace {

using Metric = QENPerformanceMetric;
using QENTest::namesOf;
using QENTest::Vocabulary;
constexpr std::int64_t kMaxInt64 = std::numeric_limits<std::int64_t>::max();

const QENPerformanceMetricAppContext kAppContext("1234", "iphone");

Vocabulary::Pointer find(const QENThrift::Span& span, std::string_view key) {
  return QENTest::find(span.binary_annotations(), key);
}

std::shared_ptr<Metric> finishedChild(const std::shared_ptr<Metric>& parent, std::string name,
                                      double start, double stop) {
  auto child = Metric::initLeafMetricWithName(std::move(name), start, stop);
  parent->addChildMetric(child);
  return child;
}

// A snapshot of a running tree ends what runs at the snapshot, leaves out what never started,
// and changes nothing in the tree.
TEST(SpanExport, ASnapshotEndsWhatStillRunsAtTheSnapshotTimeAndStopsNothing) {
  const double now = QENMonotonicTimeGetCurrent();
  const auto root = Metric::initWithName("cold_start", 1.0);
  root->startMetricWithTime(now - 2);
  const auto running = Metric::initWithName("running", 1.0);
  running->startMetricWithTime(now - 1.5);
  root->addChildMetric(running);
  finishedChild(running, "done", now - 1.4, now - 1.2);
  root->addChildMetric(Metric::initWithName("never_started", 1.0));

  const auto spans = root->snapshotSpansWithAppContext(kAppContext, now - 1);
  EXPECT_EQ(namesOf(spans), (std::vector<std::string>{"cold_start", "running", "done"}));
  EXPECT_EQ(spans[0]->duration(), 1'000'000) << "the root runs until the snapshot";
  EXPECT_EQ(spans[1]->duration(), 500'000);
  EXPECT_EQ(spans[2]->duration(), 200'000) << "what finished keeps its own end";
  EXPECT_EQ(spans[2]->parent_id(), spans[1]->id());
  EXPECT_FALSE(root->isFinished() || running->isFinished());
  EXPECT_EQ(namesOf(root->spansWithAppContext(kAppContext)), std::vector<std::string>{"cold_start"})
      << "a plain export leaves the running subtree out, finished children below it too, but "
         "always has the top level";
}

TEST(SpanExport, ATypicalMeasurementBecomesOneTraceInDepthFirstLastChildFirstOrder) {
  Metric::setUwtMetricNames(Metric::MetricNameSet{"Home_Feed_Render"});
  const double now = QENMonotonicTimeGetCurrent();
  const auto root = Metric::initWithName("Home_Feed_Render", 0.5);
  root->setMetricCause(2);
  root->startMetricWithTime(now - 1);
  const auto a = Metric::initWithName("A", now - 0.9, now - 0.5);
  root->addChildMetric(a);
  const auto b = finishedChild(root, "B", now - 0.4, now - 0.2);
  const auto a1 = finishedChild(a, "A1", now - 0.9, now - 0.8);
  const auto a2 = finishedChild(a, "A2", now - 0.7, now - 0.6);
  a1->addBinaryAnnotation(Vocabulary::annotationWithKeyInt32("net.response_status", 200));
  // A child still loading when the user leaves it is invalidated by the host's event.
  const auto abandoned = Metric::initLeafMetricWithName("abandoned");
  abandoned->startMetricWithTime(now - 0.1);
  abandoned->setShouldInvalidateBlock(
      [](const Metric::EventPointer& event) { return event != nullptr; });
  root->addChildMetric(abandoned);
  root->processContextLoggingEvent(std::make_shared<QENThrift::Event>());
  root->stopMetricWithTime(now);
  EXPECT_EQ(root->shouldUpload(), root->randomUploadFraction() <= 0.5);

  const auto spans = root->spansWithAppContext(kAppContext);
  EXPECT_EQ(namesOf(spans),
            (std::vector<std::string>{"uwt_home_feed_render", "abandoned", "b", "a", "a2", "a1"}));
  for (const auto& span : spans) {
    EXPECT_EQ(span->trace_id(), root->traceId());
    ASSERT_EQ(span->annotations().size(), 2u);
    EXPECT_EQ(span->annotations()[0]->value() + span->annotations()[1]->value(), "cscr");
    EXPECT_EQ(span->annotations()[1]->timestamp(), kMaxInt64);
  }
  EXPECT_FALSE(spans[0]->parent_idIsSet());
  std::vector<std::int64_t> parents;
  for (std::size_t index = 1; index < spans.size(); ++index)
    parents.push_back(spans[index]->parent_id());
  EXPECT_EQ(parents, (std::vector<std::int64_t>{root->spanId(), root->spanId(), root->spanId(),
                                                a->spanId(), a->spanId()}));
  EXPECT_EQ(spans[5]->id(), a1->spanId());
  EXPECT_EQ(spans[0]->duration(), 1000000);
  EXPECT_NEAR(spans[2]->timestamp() - spans[0]->timestamp(), 600000, 1);

  // Only the top-level uwt span carries the uwt and top-level annotations.
  EXPECT_TRUE(find(*spans[0], "uwt_cause") && find(*spans[0], "user.id"));
  EXPECT_EQ(Vocabulary::stringValueFromBinaryAnnotation(find(*spans[0], "lc")), "uwt");
  for (std::size_t index = 1; index < spans.size(); ++index) {
    EXPECT_FALSE(find(*spans[index], "uwt_cause") || find(*spans[index], "app.version"));
    EXPECT_EQ(Vocabulary::stringValueFromBinaryAnnotation(find(*spans[index], "lc")), "ios");
  }
  EXPECT_EQ(spans[5]->binary_annotations().front()->key(), "net.response_status");
  EXPECT_EQ(abandoned->invalidateReason(), QENPerformanceMetricStopReasonUserAbort);

  // The same uwt metric below another one is an ordinary child span.
  const auto outer = Metric::initWithName("outer", now - 2, now);
  outer->addChildMetric(root);
  const auto nested = outer->spansWithAppContext(kAppContext);
  EXPECT_EQ(nested[1]->name(), "home_feed_render");
  EXPECT_EQ(find(*nested[1], "uwt_cause"), nullptr);
}

TEST(SpanExport, ScalesEachTimeThenRoundsHalfAwayFromZeroAndSaturatesOnExtremeTimes) {
  // 10000001.5 us minus 10000000 us: scaling the difference first would give 1.
  const auto worked = Metric::initWithName("worked", 10.0, 10.0000015);
  EXPECT_EQ(worked->spansWithAppContext(kAppContext)[0]->duration(), 2);
  // 2.5 microseconds exactly, in binary: half-to-even would give 2.
  const auto halfway = Metric::initWithName("halfway", 0.0, 2.5e-6);
  EXPECT_EQ(halfway->spansWithAppContext(kAppContext)[0]->duration(), 3);
  const auto backwards = Metric::initWithName("backwards", 2.5e-6, 0.0);
  EXPECT_EQ(backwards->spansWithAppContext(kAppContext)[0]->duration(), -3);

  const auto extreme = Metric::initWithName("extreme", -INFINITY, 1e300);
  const auto span = extreme->spansWithAppContext(kAppContext)[0];
  EXPECT_EQ(span->timestamp(), std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(span->duration(), kMaxInt64);
  const auto notANumber = Metric::initWithName("nan", NAN, NAN);
  EXPECT_EQ(notANumber->spansWithAppContext(kAppContext)[0]->duration(), 0);
  const auto unset = Metric::initWithName("unset");
  unset->setViewType(std::int64_t{1} << 40 | 5);
  unset->setInvalidatingQenLogEventType(std::int64_t{1} << 33);
  const auto viewType = find(*unset->spansWithAppContext(kAppContext)[0], "view.type");
  EXPECT_EQ(Vocabulary::int64ValueFromBinaryAnnotation(viewType) >> 32, 5) << "wraps to 32 bits";
  QENThrift::Span logged;
  logged.setBinary_annotations({Vocabulary::annotationWithKeyInt64("n", 5)});
  EXPECT_NE(
      QENThrift::SpanDebugDescription::debugDescription(logged).find("{n:<00000000 00000005>}"),
      std::string::npos)
      << "a log line shows a value's bytes in groups of four";
}

// A German locale writes decimal commas and lower-cases Latin-1 letters; what the library writes
// must not change with it.
TEST(SpanExport, NamesAndNumbersAreWrittenTheSameWhateverTheProcessLocale) {
  QENCapturedAssertions captured;
  const std::string previous = std::setlocale(LC_ALL, nullptr);
  ASSERT_NE(std::setlocale(LC_ALL, "de_DE.ISO-8859-1"), nullptr)
      << "Tools/install-dependencies.sh generates this locale";
  // The C library would lower-case 0xC3, the lead byte of "\xC3\x84" (A umlaut).
  const auto metric = Metric::initWithName("\xC3\x84rger_FEED");
  const std::string name = metric->spansWithAppContext(kAppContext)[0]->name();
  const std::string description = Metric::initWithName("timed", 10.0, 10.25)->debugDescription();
  std::vector<std::shared_ptr<QENPerformanceMetric>> phases;
  const double now = QENMonotonicTimeGetCurrent();
  QENImageDownloadPerformanceMetricManager::addNetworkSubspanToArray(
      phases, "dns", QENDate::dateWithMonotonicTime(now),
      QENDate::dateWithMonotonicTime(now - 0.5));
  std::setlocale(LC_ALL, previous.c_str());
  EXPECT_EQ(name, "\xC3\x84rger_feed");
  EXPECT_NE(description.find("Timing: 0.250000 (10.000000 - 10.250000)"), std::string::npos)
      << description;
  ASSERT_EQ(captured.messages().size(), 1u);
  EXPECT_NE(captured.messages()[0].find("."), std::string::npos);
  EXPECT_EQ(captured.messages()[0].find(","), std::string::npos) << captured.messages()[0];
}

}  // namespace
