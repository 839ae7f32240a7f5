#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <latch>

#include "QENSpanReporter.h"
#include "Support/QENScriptedCollectorTransport.h"
#include "Support/QENTestSpans.h"

namespace {

using namespace std::chrono_literals;
using Consent = QENTelemetryConsent;
using Outcome = QENCollectorTransport::Outcome;

enum class Where { kTaking, kPosting };  // the batch, when the change lands

struct Path {
  const char* name;
  bool spooled;
  Where held;
  Outcome answer;    // to the held post
  Consent change;    // what lands while it is held
  bool grantsAgain;  // and consent given again right after
};

// The device's conditions pause sending; a refusal voids every ticket taken before it, even once
// consent is given again, while a later ticket may go.
TEST(DeliveryGate, PausesWhileTheDeviceCannotAffordItAndARefusalVoidsEarlierTickets) {
  const struct {
    QENDeviceConditions conditions;
    bool open;
  } table[] = {{{.online = false}, false},
               {{.metered = true}, false},
               {{.powerSave = true}, false},
               {{.batteryLevel = 0.05}, false},
               {{.batteryLevel = 0.05, .charging = true}, true},
               {{.batteryLevel = 0.1}, true}};
  for (const auto& row : table) {
    QENDeliveryGate gate(Consent::kGranted, 0.1, true);
    gate.setDeviceConditions(row.conditions);
    EXPECT_EQ(gate.isOpen(), row.open) << &row - table;
  }
  QENDeliveryGate gate(Consent::kPending, 0.1, false);
  const auto taken = gate.ticket();
  EXPECT_EQ(gate.verdictFor(taken), QENDeliveryGate::Verdict::kPaused);
  gate.setConsent(Consent::kNotGranted);
  gate.setConsent(Consent::kGranted);
  EXPECT_EQ(gate.verdictFor(taken), QENDeliveryGate::Verdict::kRefused);
  EXPECT_TRUE(gate.isOpen());
}

// Two a minute: a burst of two, then one more each half minute.
TEST(DeliveryGate, ARateLimitAdmitsABurstThenOneSpanPerItsShareOfAMinute) {
  QENDeliveryGate gate(Consent::kGranted, 0.1, false, 2);
  const auto start = std::chrono::steady_clock::now();
  std::vector<bool> admitted;
  for (const auto at : {0s, 0s, 0s, 30s, 30s})
    admitted.push_back(gate.admitsReportedSpan(start + at));
  EXPECT_EQ(admitted, (std::vector{true, true, false, true, false}));
}

class ConsentAtTheWire : public testing::TestWithParam<Path> {};

// Five spans in one batch; the refusal (or pause) lands while the batch is taken or posted. After
// it, nothing more leaves, and each span is counted once.
TEST_P(ConsentAtTheWire, NothingLeavesAfterTheChangeAndEachSpanIsCountedOnce) {
  const Path& path = GetParam();
  // The reporter's thread waits where the change is to land, the first time it gets there.
  std::atomic<bool> held{false};
  std::latch arrived{1}, released{1};
  const auto holdHere = [&] {
    if (!held.exchange(true)) {
      arrived.count_down();
      released.wait();
    }
  };
  auto transport = std::make_shared<QENScriptedCollectorTransport>([&](int index) {
    if (index > 0)
      return Outcome::kDelivered;
    if (path.held == Where::kPosting)
      holdHere();
    return path.answer;
  });
  QENSpanReporterOptions options;
  options.transport = transport;
  options.flushInterval = 0ms;
  options.initialBackoff = options.maximumBackoff = 1ms;
  options.encoding.gzip = path.answer == Outcome::kUnsupportedEncoding;
  options.encoding.reading.scrubbing.tagFilter = [&](std::string_view, std::string&) {
    if (path.held == Where::kTaking)
      holdHere();
    return true;
  };
  char folder[] = "/tmp/qen-gate-XXXXXX";
  if (path.spooled)
    options.spool = std::make_shared<QENSpanSpool>(
        QENSpanSpoolOptions{.path = std::string(::mkdtemp(folder)) + "/spool.sqlite"});
  QENSpanReporter reporter(options);
  reporter.report(testSpans(5));  // the filter sees each name
  arrived.wait();
  reporter.setConsent(path.change);
  if (path.grantsAgain)
    reporter.setConsent(Consent::kGranted);
  released.count_down();
  reporter.shutdown(5s);

  EXPECT_EQ(transport->posts().size(), path.held == Where::kPosting ? 1u : 0u);
  const auto counters = reporter.counters();
  const bool kept = path.change == Consent::kPending;
  EXPECT_EQ(counters.delivered + counters.dropped(), kept ? 0u : 5u);
  EXPECT_EQ(counters.persisted, path.spooled ? 5u : 0u);
  if (path.spooled)
    std::filesystem::remove_all(folder);
}

constexpr auto kRefused = Consent::kNotGranted;
INSTANTIATE_TEST_SUITE_P(
    Reporter, ConsentAtTheWire,
    testing::Values(
        Path{"QueuedBatch", false, Where::kTaking, {}, kRefused, false},
        Path{"SpooledBatchPaused", true, Where::kTaking, {}, Consent::kPending, false},
        Path{"HalvesOf413", false, Where::kPosting, Outcome::kTooLarge, kRefused, false},
        Path{"PlainResendAfter415", false, Where::kPosting, Outcome::kUnsupportedEncoding, kRefused,
             false},
        Path{"RetryAfterARegrant", false, Where::kPosting, Outcome::kRetry, kRefused, true},
        Path{"SpooledDeliveryDuringARefusal", true, Where::kPosting, Outcome::kDelivered, kRefused,
             true}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
