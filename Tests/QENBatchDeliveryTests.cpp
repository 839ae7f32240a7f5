#include <gtest/gtest.h>

#include <filesystem>

#include "QENBackoff.h"
#include "QENSpanReporter.h"
#include "Support/QENScriptedCollectorTransport.h"
#include "Support/QENTestSpans.h"

namespace {

using namespace std::chrono_literals;
using Counters = QENSpanReporterCounters;
using Outcome = QENCollectorTransport::Outcome;

// Steps of 100, 200, 400, 400 ms (the maximum); each wait is drawn within the upper half of its
// step, and a success starts the steps over.
TEST(Backoff, EachWaitIsDrawnFromTheUpperHalfOfADoublingStep) {
  for (const bool drawsHighest : {false, true}) {
    QENBackoff backoff(100ms, 400ms,
                       [&](std::uint32_t upperBound) { return drawsHighest ? upperBound - 1 : 0; });
    std::vector<std::chrono::milliseconds> waits;
    for (int attempt = 0; attempt < 4; ++attempt)
      waits.push_back(backoff.next());
    backoff.reset();
    waits.push_back(backoff.next());
    const std::vector<std::chrono::milliseconds> expected =
        drawsHighest ? std::vector{100ms, 200ms, 400ms, 400ms, 100ms}
                     : std::vector{50ms, 100ms, 200ms, 200ms, 50ms};
    EXPECT_EQ(waits, expected);
  }
}

struct OutcomeCase {
  const char* name;
  Outcome answer;  // to every post
  bool spooled;
  int posts;  // with one retry allowed
  std::uint64_t Counters::* endsIn;
};

class BatchOutcomes : public testing::TestWithParam<OutcomeCase> {};

// A one-span batch whose every post gets the same answer ends in the counter its outcome names,
// whether it came from the queue or from the spool, after the same number of posts.
TEST_P(BatchOutcomes, EachOutcomeEndsInItsCounterFromTheQueueAndFromTheSpool) {
  const OutcomeCase& row = GetParam();
  auto transport = std::make_shared<QENScriptedCollectorTransport>([&](int) { return row.answer; });
  QENSpanReporterOptions options;
  options.transport = transport;
  options.encoding.gzip = false;
  options.flushInterval = 0ms;
  options.maximumRetries = 1;
  options.initialBackoff = options.maximumBackoff = options.maximumRetryAfter = 1ms;
  char folder[] = "/tmp/qen-outcome-XXXXXX";
  if (row.spooled)
    options.spool = std::make_shared<QENSpanSpool>(
        QENSpanSpoolOptions{.path = std::string(::mkdtemp(folder)) + "/spool.sqlite"});
  {
    QENSpanReporter reporter(options);
    reporter.report(testSpans(1));
    reporter.shutdown(5s);
    const Counters counters = reporter.counters();
    EXPECT_EQ(static_cast<int>(transport->posts().size()), row.posts);
    EXPECT_EQ(counters.retried, static_cast<std::uint64_t>(row.posts - 1));
    EXPECT_EQ(counters.delivered + counters.dropped(), 1u);
    EXPECT_EQ(counters.*row.endsIn, 1u);
  }
  if (row.spooled)
    std::filesystem::remove_all(folder);
}

std::vector<OutcomeCase> outcomeCases() {
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

}  // namespace
