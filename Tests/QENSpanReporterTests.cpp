#include <gtest/gtest.h>

#include <map>
#include <nlohmann/json.hpp>

#include "QENSpanReporter.h"
#include "Support/QENLoopbackHTTPServer.h"

namespace {

using namespace std::chrono_literals;
using Answer = QENLoopbackHTTPServer::Answer;

QENSpanReporter::SpanList spans(int count, std::int64_t firstId) {
  QENSpanReporter::SpanList made;
  for (int index = 0; index < count; ++index) {
    auto span = std::make_shared<QENThrift::Span>();
    span->setId(firstId + index);
    span->setName("span");
    made.push_back(span);
  }
  return made;
}

// How often each span id reached the server in a batch that was answered with success.
std::map<std::string, int> deliveredIds(const QENLoopbackHTTPServer& server) {
  std::map<std::string, int> counts;
  for (const auto& request : server.requests()) {
    if (request.status >= 200 && request.status < 300) {
      for (const auto& span : nlohmann::json::parse(request.body)) {
        ++counts[span["id"]];
      }
    }
  }
  return counts;
}

QENSpanReporterOptions options(const std::string& url) {
  QENSpanReporterOptions made;
  made.collectorURL = url;
  made.maximumBatchSpans = 10;
  made.flushInterval = 20ms;
  made.initialBackoff = 5ms;
  made.maximumBackoff = 20ms;
  made.requestTimeout = 2s;
  return made;
}

TEST(SpanReporter, DeliversEverySpanOnceThroughServerErrorsAndDroppedConnections) {
  // Every third request fails: a 500, then a connection closed without an answer.
  QENLoopbackHTTPServer server([](int index) {
    return index % 3 == 1 ? Answer{500} : index % 3 == 2 ? Answer{0} : Answer{202};
  });
  QENSpanReporter reporter(options(server.url()));
  for (int round = 0; round < 10; ++round) {
    reporter.report(spans(7, round * 7));
  }
  EXPECT_TRUE(reporter.shutdown(10s));
  const auto counters = reporter.counters();
  EXPECT_EQ(counters.accepted, 70u);
  EXPECT_EQ(counters.sent, 70u);
  EXPECT_GT(counters.retried, 0u);
  EXPECT_EQ(counters.dropped, 0u);
  const auto delivered = deliveredIds(server);
  EXPECT_EQ(delivered.size(), 70u);
  for (const auto& [id, times] : delivered) {
    EXPECT_EQ(times, 1) << id;
  }
}

TEST(SpanReporter, GivesUpOnClientErrorsAndCountsDropsOfAFullQueue) {
  QENLoopbackHTTPServer server([](int) { return Answer{400}; });
  auto small = options(server.url());
  small.maximumQueuedSpans = 5;
  small.flushInterval = 1h;  // nothing leaves the queue before shutdown
  small.maximumBatchSpans = 100;
  QENSpanReporter reporter(small);
  reporter.report(spans(12, 0));
  reporter.shutdown(5s);
  const auto counters = reporter.counters();
  EXPECT_EQ(counters.accepted, 12u);
  EXPECT_EQ(counters.sent, 0u);
  EXPECT_EQ(counters.retried, 0u) << "a 4xx is final";
  EXPECT_EQ(counters.dropped, 12u) << "7 pushed out of the queue, 5 refused";
  ASSERT_EQ(server.requests().size(), 1u);
  EXPECT_EQ(nlohmann::json::parse(server.requests()[0].body).size(), 5u);
  EXPECT_EQ(nlohmann::json::parse(server.requests()[0].body)[0]["id"], "0000000000000007")
      << "the oldest were dropped";
}

TEST(SpanReporter, ShutdownKeepsItsTimeLimitAgainstASlowOrAbsentCollector) {
  {
    QENLoopbackHTTPServer slow([](int) { return Answer{200, 2s}; });
    auto patient = options(slow.url());
    patient.requestTimeout = 10s;
    QENSpanReporter reporter(patient);
    reporter.report(spans(3, 0));
    const auto started = std::chrono::steady_clock::now();
    EXPECT_FALSE(reporter.shutdown(300ms));
    EXPECT_LT(std::chrono::steady_clock::now() - started, 1500ms);
    EXPECT_EQ(reporter.counters().dropped, 3u);
  }
  // Nobody listens: every attempt is refused, the retries run out, the spans are dropped.
  QENSpanReporter refused(options("http://127.0.0.1:1/api/v2/spans"));
  refused.report(spans(4, 0));
  EXPECT_FALSE(refused.shutdown(5s));
  const auto counters = refused.counters();
  EXPECT_EQ(counters.dropped, 4u);
  EXPECT_EQ(counters.retried, 4u * 4u);
}

}  // namespace
