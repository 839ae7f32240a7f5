#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <latch>
#include <ostream>

#include "BinaryAnnotation+QENAdditions.h"
#include "QENSpanReporter.h"
#include "Support/QENScriptedCollectorTransport.h"
#include "Support/QENTestSpans.h"

namespace {

using namespace std::chrono_literals;
using Consent = QENTelemetryConsent;
using Outcome = QENCollectorTransport::Outcome;

// Stops the reporter's thread where the test wants a consent change to land, the first time it
// gets there.
class Hold {
 public:
  void here() {
    if (!used_.exchange(true)) {
      arrived_.count_down();
      released_.wait();
    }
  }
  template <class Change>
  void landThenRelease(Change change) {
    arrived_.wait();
    change();
    released_.count_down();
  }

 private:
  std::atomic<bool> used_{false};
  std::latch arrived_{1};
  std::latch released_{1};
};

enum class Where { kTakingTheBatch, kPostingIt };

struct Path {
  const char* name;
  bool spooled;
  Where held;
  Outcome answer;    // to the held post
  Consent change;    // what lands while it is held
  bool grantsAgain;  // and consent given again right after
  std::size_t posts;
};

void PrintTo(const Path& path, std::ostream* out) {
  *out << path.name;
}

class ConsentAtTheWire : public testing::TestWithParam<Path> {
 protected:
  void TearDown() override { std::filesystem::remove_all(folder_); }
  std::filesystem::path folder_ =
      std::filesystem::temp_directory_path() /
      ("qen-gate-" + std::string(testing::UnitTest::GetInstance()->current_test_info()->name())
                         .substr(0, 24) +
       std::to_string(::getpid()));
};

// Five spans in one batch; the refusal (or pause) lands while the batch is taken or posted. After
// it, nothing more leaves, and each span is counted once.
TEST_P(ConsentAtTheWire, NothingLeavesAfterTheChangeAndEachSpanIsCountedOnce) {
  const Path& path = GetParam();
  Hold hold;
  auto transport = std::make_shared<QENScriptedCollectorTransport>([&](int index) {
    if (index > 0)
      return Outcome::kDelivered;
    if (path.held == Where::kPostingIt)
      hold.here();
    return path.answer;
  });
  QENSpanReporterOptions options;
  options.transport = transport;
  options.flushInterval = 0ms;
  options.initialBackoff = options.maximumBackoff = 1ms;
  options.encoding.gzip = path.answer == Outcome::kUnsupportedEncoding;
  options.encoding.reading.scrubbing.tagFilter = [&](std::string_view, std::string&) {
    if (path.held == Where::kTakingTheBatch)
      hold.here();
    return true;
  };
  if (path.spooled) {
    std::filesystem::create_directories(folder_);
    options.spool = std::make_shared<QENSpanSpool>(
        QENSpanSpoolOptions{.path = (folder_ / "spool.sqlite").string()});
  }
  QENSpanReporter reporter(options);
  auto spans = testSpans(5);
  for (const auto& span : spans)
    span->setBinary_annotations(
        {QENThrift::BinaryAnnotationQENAdditions::annotationWithKeyString("k", "v")});
  reporter.report(spans);
  hold.landThenRelease([&] {
    reporter.setConsent(path.change);
    if (path.grantsAgain)
      reporter.setConsent(Consent::kGranted);
  });
  reporter.shutdown(5s);

  EXPECT_EQ(transport->posts().size(), path.posts);
  const auto counters = reporter.counters();
  const bool kept = path.change == Consent::kPending;
  EXPECT_EQ(counters.delivered + counters.dropped(), kept ? 0u : 5u);
  EXPECT_EQ(counters.persisted, path.spooled ? 5u : 0u);
}

INSTANTIATE_TEST_SUITE_P(
    Reporter, ConsentAtTheWire,
    testing::Values(
        Path{"QueuedBatch", false, Where::kTakingTheBatch, {}, Consent::kNotGranted, false, 0},
        Path{"SpooledBatchPaused", true, Where::kTakingTheBatch, {}, Consent::kPending, false, 0},
        Path{"HalvesOf413", false, Where::kPostingIt, Outcome::kTooLarge, Consent::kNotGranted,
             false, 1},
        Path{"SpooledHalvesOf413", true, Where::kPostingIt, Outcome::kTooLarge,
             Consent::kNotGranted, false, 1},
        Path{"PlainResendAfter415", false, Where::kPostingIt, Outcome::kUnsupportedEncoding,
             Consent::kNotGranted, false, 1},
        Path{"RetryAfterARegrant", false, Where::kPostingIt, Outcome::kRetry, Consent::kNotGranted,
             true, 1},
        Path{"SpooledRetryAfterARegrant", true, Where::kPostingIt, Outcome::kRetry,
             Consent::kNotGranted, true, 1},
        Path{"SpooledDeliveryDuringARefusal", true, Where::kPostingIt, Outcome::kDelivered,
             Consent::kNotGranted, true, 1}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
