#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <latch>
#include <nlohmann/json.hpp>
#include <ostream>
#include <thread>

#include "BinaryAnnotation+QENAdditions.h"
#include "QENBackoff.h"
#include "QENHostCollectorTransport.h"
#include "QENSpanReporter.h"
#include "Support/QENCapturedAssertions.h"
#include "Support/QENLoopbackHTTPServer.h"
#include "Support/QENScriptedCollectorTransport.h"
#include "Support/QENTestSpans.h"

namespace {

using namespace std::chrono_literals;
using Answer = QENLoopbackHTTPServer::Answer;
using Fault = QENLoopbackHTTPServer::Fault;
using Outcome = QENCollectorTransport::Outcome;

QENSpanReporter::SpanList spans(int count, std::int64_t firstId = 0) {
  return testSpans(count, firstId);
}

// accepted = delivered + dropped, and delivered is what the collector acknowledged, once each.
void expectBooksBalance(const QENSpanReporterCounters& counters,
                        const QENLoopbackHTTPServer* server) {
  EXPECT_EQ(counters.accepted, counters.delivered + counters.dropped());
  if (server != nullptr) {
    const auto acknowledged = server->acknowledgedSpanIds();
    EXPECT_EQ(counters.delivered, acknowledged.size());
    for (const auto& [id, times] : acknowledged)
      EXPECT_EQ(times, 1) << id;
  }
}

QENSpanReporterOptions options(const std::string& url) {
  QENSpanReporterOptions made;
  made.collectorURL = url;
  made.maximumBatchSpans = 10;
  made.flushInterval = 5ms;
  made.initialBackoff = 1ms;
  made.maximumBackoff = 4ms;
  made.maximumRetryAfter = 4ms;
  made.requestTimeout = 10s;
  return made;
}

// Settings for a scripted collector, with bodies left uncompressed to read them as they are.
QENSpanReporterOptions options(std::shared_ptr<QENScriptedCollectorTransport> transport) {
  QENSpanReporterOptions made = options(std::string());
  made.transport = std::move(transport);
  made.encoding.gzip = false;
  return made;
}

std::shared_ptr<QENScriptedCollectorTransport> collector(Outcome outcome = Outcome::kDelivered) {
  return std::make_shared<QENScriptedCollectorTransport>([outcome](int) { return outcome; });
}

enum class FirstBatch { kDelivered, kRetried, kRefused };

struct FaultCase {
  const char* name;
  Answer first;  // the answer to the first batch; later batches get 202
  FirstBatch ends;
};

void PrintTo(const FaultCase& fault, std::ostream* out) {
  *out << fault.name;
}

class SpanReporterFaults : public testing::TestWithParam<FaultCase> {};

// 25 spans in one report make three batches, the first of exactly ten spans.
TEST_P(SpanReporterFaults, EveryFaultOfTheFirstBatchEndsAsItsKindSaysAndTheBooksBalance) {
  const FaultCase& fault = GetParam();
  QENCapturedAssertions captured;
  QENLoopbackHTTPServer server([&](int index) { return index == 0 ? fault.first : Answer{202}; });
  auto settings = options(server.url());
  // Long enough that no answer but the stalled one can run out of it, even on a loaded machine.
  settings.requestTimeout = fault.first.fault == Fault::kStall ? 1s : 10s;
  QENSpanReporter reporter(settings);
  reporter.report(spans(25));
  const bool refused = fault.ends == FirstBatch::kRefused;
  EXPECT_EQ(reporter.shutdown(20s), !refused);
  const auto counters = reporter.counters();
  EXPECT_EQ(counters.accepted, 25u);
  EXPECT_EQ(counters.delivered, refused ? 15u : 25u);
  EXPECT_EQ(counters.retried, fault.ends == FirstBatch::kRetried ? 10u : 0u);
  EXPECT_EQ(counters.droppedClientError, refused ? 10u : 0u);
  expectBooksBalance(counters, &server);
  const auto messages = captured.messages();
  const bool redirect = fault.first.status >= 300 && fault.first.status < 400;
  EXPECT_EQ(messages.size(), !refused ? 0u : redirect ? 2u : 1u);
  EXPECT_EQ(redirect, !messages.empty() && messages[0].find("redirects is a configuration error") !=
                                               std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(
    Collector, SpanReporterFaults,
    testing::Values(FaultCase{"ServerError", {503}, FirstBatch::kRetried},
                    FaultCase{"Reset", {200, Fault::kReset}, FirstBatch::kRetried},
                    FaultCase{"Stall", {200, Fault::kStall}, FirstBatch::kRetried},
                    FaultCase{"Trickle", {200, Fault::kTrickle}, FirstBatch::kDelivered},
                    FaultCase{"TooManyRequests", {429, Fault::kNone, "3600"}, FirstBatch::kRetried},
                    FaultCase{"ClientError", {400}, FirstBatch::kRefused},
                    FaultCase{"Redirect", {301}, FirstBatch::kRefused},
                    FaultCase{"MultipleChoices", {300}, FirstBatch::kRefused}),
    [](const testing::TestParamInfo<FaultCase>& info) { return std::string(info.param.name); });

// A collector's Retry-After and the back-off each hold the retry back: the longer one wins.
TEST(SpanReporter, NoRetryComesBeforeTheRetryAfterOrTheBackOffHasPassed) {
  for (const auto& row : {std::pair{"3600", 1ms}, std::pair{"0", std::chrono::milliseconds(1h)}}) {
    const char* const retryAfter = row.first;  // clang 14 captures no structured binding
    QENLoopbackHTTPServer server([&](int) { return Answer{429, Fault::kNone, retryAfter}; });
    auto settings = options(server.url());
    settings.maximumRetryAfter = 2h;
    settings.initialBackoff = settings.maximumBackoff = row.second;
    QENSpanReporter reporter(settings);
    reporter.report(spans(1));
    server.waitForRequests(1);
    EXPECT_FALSE(reporter.shutdown(100ms));
    EXPECT_EQ(server.requests().size(), 1u) << "posted again at once after " << retryAfter;
  }
}

// Steps of 100, 200, 400, 400 ms (the maximum); each wait is drawn within the upper half of its
// step, and a success starts the steps over.
TEST(Backoff, EachWaitIsDrawnFromTheUpperHalfOfADoublingStep) {
  for (const bool drawsHighest : {false, true}) {
    QENBackoff backoff(100ms, 400ms,
                       [&](std::uint32_t bound) { return drawsHighest ? bound - 1 : 0; });
    std::vector<std::chrono::milliseconds> waits;
    for (int attempt = 0; attempt < 4; ++attempt)
      waits.push_back(backoff.next());
    backoff.reset();
    waits.push_back(backoff.next());
    EXPECT_EQ(waits, (drawsHighest ? std::vector{100ms, 200ms, 400ms, 400ms, 100ms}
                                   : std::vector{50ms, 100ms, 200ms, 200ms, 50ms}));
  }
}

struct OutcomeCase {
  const char* name;
  Outcome answer;  // to every post
  bool spooled;
  int posts;  // with one retry allowed
  std::uint64_t QENSpanReporterCounters::* endsIn;
};

class BatchOutcomes : public testing::TestWithParam<OutcomeCase> {};

// A one-span batch whose every post gets the same answer ends in the counter its outcome names,
// whether it came from the queue or from the spool, after the same number of posts.
TEST_P(BatchOutcomes, EachOutcomeEndsInItsCounterFromTheQueueAndFromTheSpool) {
  const OutcomeCase& row = GetParam();
  const auto answering = collector(row.answer);
  auto settings = options(answering);
  settings.maximumRetries = settings.maximumSpooledRetries = 1;
  char folder[] = "/tmp/qen-outcome-XXXXXX";
  if (row.spooled)
    settings.spool = std::make_shared<QENSpanSpool>(
        QENSpanSpoolOptions{.path = std::string(::mkdtemp(folder)) + "/spool.sqlite"});
  QENSpanReporter reporter(settings);
  reporter.report(spans(1));
  reporter.shutdown(5s);
  EXPECT_EQ(static_cast<int>(answering->posts().size()), row.posts);
  EXPECT_EQ(reporter.counters().retried, static_cast<std::uint64_t>(row.posts - 1));
  EXPECT_EQ(reporter.counters().*row.endsIn, 1u);
  expectBooksBalance(reporter.counters(), nullptr);
  if (row.spooled)
    std::filesystem::remove_all(folder);
}

std::vector<OutcomeCase> outcomeCases() {
  using Counters = QENSpanReporterCounters;
  const OutcomeCase ends[] = {
      {"Delivered", Outcome::kDelivered, false, 1, &Counters::delivered},
      {"Retry", Outcome::kRetry, false, 2, &Counters::droppedGaveUp},
      {"SlowDown", Outcome::kSlowDown, false, 2, &Counters::droppedGaveUp},
      {"TooLarge", Outcome::kTooLarge, false, 1, &Counters::droppedTooLarge},
      {"UnsupportedEncoding", Outcome::kUnsupportedEncoding, false, 1,
       &Counters::droppedClientError},
      {"Refused", Outcome::kRefused, false, 1, &Counters::droppedClientError},
      {"CutOff", Outcome::kCutOff, false, 1, &Counters::droppedShutDown},
  };
  std::vector<OutcomeCase> cases;
  // A spooled batch cut off is kept, uncounted, for a later process: it has no row here.
  for (const OutcomeCase& row : ends) {
    cases.push_back(row);
    if (row.answer != Outcome::kCutOff)
      cases.push_back({row.name, row.answer, true, row.posts, row.endsIn});
  }
  return cases;
}

INSTANTIATE_TEST_SUITE_P(Delivery, BatchOutcomes, testing::ValuesIn(outcomeCases()),
                         [](const auto& info) {
                           return std::string(info.param.name) +
                                  (info.param.spooled ? "Spooled" : "Queued");
                         });

// A root, three children, three grandchildren each, listed parent first as an export lists them:
// the cap keeps the root, the children and the first grandchild, and a rate limit of four a
// minute then lets only the first four through.
TEST(SpanReporter, AReportPastItsCapKeepsTheTopLevelsAndTheRateLimitTheFirstAndBothCount) {
  QENSpanReporter::SpanList tree = spans(13, 1);
  for (std::size_t index = 1; index < tree.size(); ++index) {
    const std::size_t child = (index - 1) / 4 * 4 + 1;
    tree[index]->setParent_id(index == child ? 1 : tree[child]->id());
  }
  const auto delivering = collector();
  auto settings = options(delivering);
  settings.maximumSpansPerReport = 5;
  settings.maximumSpansPerMinute = 4;
  QENSpanReporter reporter(settings);
  reporter.report(tree);
  EXPECT_FALSE(reporter.shutdown(20s)) << "not everything accepted was delivered";
  std::vector<std::string> sent;
  for (const auto& span : nlohmann::json::parse(delivering->posts().at(0).body))
    sent.push_back(span["id"]);
  EXPECT_EQ(sent, (std::vector<std::string>{"0000000000000001", "0000000000000002",
                                            "0000000000000003", "0000000000000006"}));
  EXPECT_EQ(reporter.counters().droppedOverReportCap, 8u);
  EXPECT_EQ(reporter.counters().droppedRateLimited, 1u);
  expectBooksBalance(reporter.counters(), nullptr);
}

TEST(SpanReporter, AFullQueueDropsTheOldestAndCountsThem) {
  const auto delivering = collector();
  auto small = options(delivering);
  small.maximumQueuedSpans = 5;
  small.flushInterval = 1h;  // nothing leaves the queue before shutdown
  small.maximumBatchSpans = 100;
  QENSpanReporter reporter(small);
  reporter.report(spans(12));
  EXPECT_FALSE(reporter.shutdown(20s));
  EXPECT_EQ(reporter.counters().droppedQueueFull, 7u);
  EXPECT_EQ(reporter.counters().delivered, 5u);
  EXPECT_EQ(nlohmann::json::parse(delivering->posts().at(0).body)[0]["id"], "0000000000000007")
      << "the oldest were dropped";
}

// Settings that once crashed (an empty queue popped) or hung (a batch of nothing) are reported and
// raised to their floors; the reporter then works.
TEST(SpanReporter, SettingsBelowTheirFloorsAreReportedAndRaised) {
  QENCapturedAssertions captured;
  QENLoopbackHTTPServer server([](int) { return Answer{202}; });
  QENSpanReporterOptions bad;
  bad.collectorURL = server.url();
  bad.maximumSpansPerReport = 0;
  bad.encoding.reading.maximumTagsPerSpan = 0;
  bad.encoding.reading.maximumTagValueBytes = 15;
  bad.maximumQueuedSpans = 0;
  bad.maximumBatchSpans = 0;
  bad.maximumBatchBytes = 0;
  bad.flushInterval = -1ms;
  bad.maximumRetries = -1;
  bad.initialBackoff = 10ms;
  bad.maximumBackoff = 1ms;
  bad.maximumRetryAfter = -1ms;
  bad.destructionShutdownLimit = -1ms;
  bad.headers = {{"X-Ok", "1"}, {"X-Evil", "1\r\nX-Injected: 2"}, {"", "x"}};
  QENSpanReporter reporter(bad);
  std::vector<std::string> conditions;
  for (const auto& message : captured.messages())
    conditions.push_back(message.substr(std::string("Invalid parameter not satisfying: ").size()));
  const std::string badHeader = "a header has a name without a colon, and no line break";
  EXPECT_EQ(
      conditions,
      (std::vector<std::string>{
          "maximumSpansPerReport >= 1", "maximumTagsPerSpan >= 1", "maximumTagValueBytes >= 16",
          "maximumQueuedSpans >= 1", "maximumBatchSpans >= 1", "maximumBatchBytes >= 1",
          "flushInterval >= 0", "maximumRetries >= 0", "maximumBackoff >= initialBackoff",
          "maximumRetryAfter >= 0", "destructionShutdownLimit >= 0", badHeader, badHeader}));
  for (int index = 0; index < 3; ++index) {
    reporter.report(spans(1, index));
    server.waitForRequests(static_cast<std::size_t>(index) + 1);
  }
  EXPECT_TRUE(reporter.shutdown(20s));
  expectBooksBalance(reporter.counters(), &server);
  const auto sent = server.requests().front();
  EXPECT_TRUE(sent.hasHeader("X-Ok: 1") && sent.hasHeader("Content-Encoding: gzip") &&
              sent.hasHeader("User-Agent: QENPerformanceLogger/" QEN_TEST_VERSION));
  EXPECT_EQ(sent.headers.find("X-Injected"), std::string::npos);
}

// Five threads stop one reporter at once while a transfer hangs on a collector that never
// answers, with an hour's request timeout: they return only if the transfer is cut at once, and
// the host is told of the stop once.
TEST(SpanReporter, ConcurrentShutdownsCutAHangingTransferAndCountItsSpans) {
  QENLoopbackHTTPServer server([](int) { return Answer{200, Fault::kStall}; });
  auto settings = options(server.url());
  settings.requestTimeout = 1h;
  std::atomic<int> told = 0;
  settings.didStop = [&](const QENSpanReporterCounters&) { ++told; };
  QENSpanReporter reporter(settings);
  reporter.report(spans(5));
  server.waitForRequests(1);  // a transfer is in flight
  std::latch ready(5);
  std::vector<std::thread> callers;
  for (int caller = 0; caller < 5; ++caller) {
    callers.emplace_back([&] {
      ready.arrive_and_wait();
      EXPECT_FALSE(reporter.shutdown(100ms));
    });
  }
  for (auto& caller : callers)
    caller.join();
  EXPECT_EQ(reporter.counters().droppedShutDown, 5u);
  expectBooksBalance(reporter.counters(), &server);
  EXPECT_EQ(told, 1) << "the host hears of the stop once";
}

// Host code that throws on the reporter's thread costs what it was handling, never the process:
// the tag filter throws on span 2, the transport on the first batch, didStop at the end.
TEST(SpanReporter, HostCodeThatThrowsOnTheReportersThreadLosesOnlyWhatItHandled) {
  auto settings = options(std::make_shared<QENScriptedCollectorTransport>([](int index) {
    return index == 0 ? throw std::runtime_error("no route") : Outcome::kDelivered;
  }));
  settings.maximumBatchSpans = 2;
  settings.flushInterval = 0ms;
  settings.encoding.reading.scrubbing.tagFilter = [](std::string_view, std::string& value) {
    return value == "throw" ? throw std::logic_error("bad tag") : true;
  };
  settings.didStop = [](const QENSpanReporterCounters&) { throw std::runtime_error("late"); };
  QENSpanReporter reporter(settings);
  auto reported = spans(5, 1);
  reported[1]->setBinary_annotations(
      {QENThrift::BinaryAnnotationQENAdditions::annotationWithKeyString("k", "throw")});
  reporter.report(reported);
  reporter.shutdown(5s);
  EXPECT_EQ(reporter.counters().droppedHostFault, 3u) << "span 2, and 1 and 3 in the failed post";
  EXPECT_EQ(reporter.counters().delivered, 2u);
  expectBooksBalance(reporter.counters(), nullptr);
}

// Made for a main thread, its last owner lets it go at once: the shutdown, held here by a
// collector that never answers, goes on elsewhere, and ends when the collector goes.
TEST(SpanReporter, ReleasedInBackgroundItsLastOwnerDoesNotWaitForTheShutdown) {
  const auto stopped = std::make_shared<std::latch>(1);  // outlives the test in the reporter
  {
    QENLoopbackHTTPServer server([](int) { return Answer{200, Fault::kStall}; });
    auto settings = options(server.url());
    settings.destructionShutdownLimit = 1h;
    settings.maximumRetries = 0;
    settings.didStop = [stopped](const QENSpanReporterCounters&) { stopped->count_down(); };
    auto reporter = QENSpanReporter::makeReleasedInBackground(settings);
    reporter->report(spans(1));
    server.waitForRequests(1);
    reporter.reset();
    EXPECT_FALSE(stopped->try_wait()) << "still waiting for the collector, elsewhere";
  }
  stopped->wait();
}

// A host's transport: its answers drive the reporter as libcurl's do (a 429 sent again after its
// Retry-After), and a post that hangs in the host's client cannot hold a shutdown.
TEST(SpanReporter, AHostsTransportIsRetriedAsAskedAndCannotHoldAShutdown) {
  struct Steps {
    std::atomic<int> posts{0};
    std::latch delivered{1}, hung{1}, released{1};
  };
  const auto steps = std::make_shared<Steps>();  // the host's client may outlive the test
  auto settings = options(std::string());
  settings.transport = std::make_shared<QENHostCollectorTransport>(
      [steps](std::string_view, const auto&, std::optional<std::chrono::seconds>& retryAfter) {
        switch (steps->posts++) {
          case 0:
            retryAfter = std::chrono::seconds(0);
            return Outcome::kSlowDown;
          case 1:
            steps->delivered.count_down();
            return Outcome::kDelivered;
          default:
            steps->hung.count_down();
            steps->released.wait();
            return Outcome::kDelivered;
        }
      });
  QENSpanReporter reporter(settings);
  reporter.report(spans(1, 1));
  steps->delivered.wait();
  reporter.report(spans(1, 2));
  steps->hung.wait();
  EXPECT_FALSE(reporter.shutdown(10ms));
  steps->released.count_down();
  EXPECT_EQ(reporter.counters().delivered, 1u);
  EXPECT_EQ(reporter.counters().retried, 1u);
  EXPECT_EQ(reporter.counters().droppedShutDown, 1u) << "given up at the deadline";
}

}  // namespace
