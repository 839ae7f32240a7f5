#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <mutex>
#include <random>
#include <set>
#include <thread>

#include "QENApplication/QENApplicationLifecycle.h"
#include "QENFatalHangRecording.h"
#include "QENFoundation/QENMonotonicTime.h"
#include "QENFoundation/QENNetworkEndianHexString.h"
#include "QENSpanSpool.h"
#include "QENUnfinishedTraceWatcher.h"
#include "Support/QENCapturedAssertions.h"
#include "Support/QENLoopbackHTTPServer.h"
#include "Support/QENScriptedCollectorTransport.h"
#include "Support/QENSpoolKillRound.h"
#include "Support/QENTestSpans.h"

namespace {

using namespace std::chrono_literals;
using Answer = QENLoopbackHTTPServer::Answer;
using Consent = QENTelemetryConsent;

std::string contentsOf(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

class SpanSpool : public testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/qen-spool-XXXXXX";
    folder_ = ::mkdtemp(pattern);
  }
  void TearDown() override { std::filesystem::remove_all(folder_); }

  std::string path() const { return (folder_ / "spool.sqlite").string(); }
  static QENEncodedBatch batch(std::uint64_t spans, std::size_t bytes = 16) {
    return {std::string(bytes, 'x'), "application/json", false, spans};
  }
  // A reporter's settings as the next process on this spool would have them.
  QENSpanReporterOptions spooled(const std::string& url) const {
    QENSpanReporterOptions options;
    options.collectorURL = url;
    options.spool = std::make_shared<QENSpanSpool>(QENSpanSpoolOptions{.path = path()});
    options.flushInterval = 0ms;
    return options;
  }
  bool onDisk(const char* text) const {
    return (contentsOf(path()) + contentsOf(path() + "-wal")).find(text) != std::string::npos;
  }

  std::filesystem::path folder_;
};

// A child reporting through a spooled reporter is killed with SIGKILL after a random number of its
// "persisted N" lines; a fresh reporter on the same spool then drains it.
TEST_F(SpanSpool, AKillDuringAHangLeavesAFatalHangForTheNextLaunchAndAHangThatEndsNothing) {
  QENSpanEncoding encoding;
  encoding.gzip = false;
  const double now = QENMonotonicTimeGetCurrent();
  for (const bool killed : {true, false}) {
    const auto observer =
        QENFatalHangRecording(std::make_shared<QENSpanSpool>(QENSpanSpoolOptions{.path = path()}),
                              encoding, QENPerformanceMetricAppContext("1234", "linux"));
    observer({{now - 3, now - 1}, ""}, true);
    observer({{now - 3, now - 0.5}, "main: Feed.layout"}, true);
    if (!killed) {
      observer({{now - 3, now - 0.4}, "main: Feed.layout"}, false);
    }
  }
  QENSpanSpool nextLaunch(QENSpanSpoolOptions{.path = path()});
  const auto batch = nextLaunch.oldest();
  ASSERT_TRUE(batch);
  for (const char* text :
       {"\"name\":\"app.hang\"", "\"duration\":2500000", "\"app.hang.fatal\":\"true\"",
        "\"app.hang.stack\":\"main: Feed.layout\""}) {
    EXPECT_NE(batch->body.find(text), std::string::npos) << text << " in " << batch->body;
  }
  nextLaunch.remove(batch->id);
  EXPECT_FALSE(nextLaunch.oldest());  // the hang that ended left nothing
}

TEST_F(SpanSpool, EverySpanPersistedBeforeAKillReachesTheCollectorAfterARestart) {
  const auto seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937_64 random(seed);
  const char* asked = std::getenv("QEN_KILL_ROUNDS");  // 500 for a stress run
  for (int round = asked != nullptr ? std::atoi(asked) : 20; round > 0; --round) {
    SCOPED_TRACE("round " + std::to_string(round));
    QENLoopbackHTTPServer server([](int) { return Answer{}; });
    std::int64_t persisted = 0;
    {
      QENChildProcess child(path(), server.url());
      for (auto lines = 1 + random() % 30; lines > 0; --lines) {
        const auto line = child.readLine();
        if (!line)
          break;
        persisted = std::stoll(line->substr(std::strlen("persisted ")));
      }
    }  // killed
    EXPECT_GT(persisted, 0);
    EXPECT_EQ(integrityOf(path()), "ok");
    const std::uint64_t retried = drainSpool(path(), server.url()).retried;
    const auto acknowledged = server.acknowledgedSpanIds();
    for (std::int64_t id = 1; id <= persisted; ++id)
      ASSERT_TRUE(acknowledged.contains(QENFoundation::qen_networkEndianHexString(id))) << id;
    std::uint64_t duplicates = 0;
    for (const auto& [id, times] : acknowledged)
      duplicates += static_cast<std::uint64_t>(times - 1);
    EXPECT_LE(duplicates, retried) << "only a retried batch comes twice";
    std::filesystem::remove_all(folder_);
    std::filesystem::create_directories(folder_);
  }
}

// Two cold-start trees are snapshotted, one completes, the app goes to the background; what the
// next process finds is the other, whole.
TEST_F(SpanSpool, AnAbandonedColdStartIsRecoveredWholeAndACompletedTreeIsNot) {
  QENLoopbackHTTPServer server([](int) { return Answer{}; });
  std::vector<std::thread::id> snapshotThreads;     // where each snapshot was written, in turn
  std::shared_ptr<QENPerformanceMetric> completed;  // held by the app past the last snapshot
  {
    QENUnfinishedTraceWatcher watcher(
        std::make_shared<QENSpanSpool>(QENSpanSpoolOptions{path()}), {},
        QENPerformanceMetricAppContext("1", "x"), 0ms,
        [&](std::size_t) { snapshotThreads.push_back(std::this_thread::get_id()); });
    const double now = QENMonotonicTimeGetCurrent();
    const auto coldStart = QENPerformanceMetric::initWithName("abandoned_cold_start", 1.0);
    coldStart->startMetricWithTime(now - 1);
    coldStart->addChildMetric(
        QENPerformanceMetric::initLeafMetricWithName("abandoned_done", now - 0.9, now - 0.8));
    const auto running = QENPerformanceMetric::initWithName("abandoned_running", 1.0);
    running->startMetricWithTime(now - 0.7);
    running->addChildMetric(
        QENPerformanceMetric::initLeafMetricWithName("abandoned_inner", now - 0.6, now - 0.5));
    coldStart->addChildMetric(running);
    completed = QENPerformanceMetric::initWithName("completed_feed", 1.0);
    completed->startMetricWithTime(now - 1);
    watcher.watch(coldStart);
    watcher.watch(completed);
    watcher.snapshotNow();
    completed->stopMetricWithTime(now);
    QENApplicationLifecycle::postDidEnterBackground();  // snapshots again, now without it
  }
  ASSERT_EQ(snapshotThreads.size(), 2u) << "the one asked for is taken before the watcher goes";
  EXPECT_EQ(snapshotThreads[0], std::this_thread::get_id());
  EXPECT_NE(snapshotThreads[1], std::this_thread::get_id()) << "the main thread does not wait";
  drainSpool(path(), server.url());
  std::map<std::string, nlohmann::json> spans;
  for (const auto& request : server.requests()) {
    for (const auto& span : nlohmann::json::parse(request.body))
      spans[span["name"]] = span;
  }
  ASSERT_EQ(spans.size(), 4u) << "the completed tree leaves nothing behind";
  const auto& root = spans.at("abandoned_cold_start");
  const auto& running = spans.at("abandoned_running");
  EXPECT_EQ(spans.at("abandoned_done")["parentId"], root["id"]);
  EXPECT_EQ(running["parentId"], root["id"]);
  EXPECT_EQ(spans.at("abandoned_inner")["parentId"], running["id"]);
  for (const auto& [name, span] : spans)
    EXPECT_EQ(span["tags"]["qen.recovered"], "true") << name;
  const auto end = [](const nlohmann::json& span) {
    return span["timestamp"].get<std::int64_t>() + span["duration"].get<std::int64_t>();
  };
  EXPECT_NEAR(end(running), end(root), 1) << "both unfinished: both end at the snapshot";
}

// Reporters in turn on one spool, each as the next process would be; bodies unzipped so that the
// file can be searched.
TEST_F(SpanSpool, PendingConsentKeepsSpansUnsentGrantedSendsThemAllAndNotGrantedErasesThem) {
  QENLoopbackHTTPServer server([](int) { return Answer{202}; });
  std::shared_ptr<QENSpanSpool> spool;
  const auto reporterWith = [&](Consent consent) {
    auto options = spooled(server.url());
    spool = options.spool;
    options.encoding.gzip = false;
    options.consent = consent;
    return std::make_unique<QENSpanReporter>(options);
  };
  auto pending = reporterWith(Consent::kPending);
  pending->report(testSpans(5, 1, "asked-span"));
  EXPECT_FALSE(pending->shutdown(5s));
  EXPECT_EQ(pending->counters().persisted, 5u);
  EXPECT_TRUE(server.requests().empty());
  auto granted = reporterWith(Consent::kPending);
  granted->setConsent(Consent::kGranted);
  EXPECT_TRUE(granted->shutdown(20s));
  EXPECT_EQ(server.acknowledgedSpanIds().size(), 5u);

  reporterWith(Consent::kPending)->report(testSpans(5, 6, "refused-span"));
  ASSERT_TRUE(onDisk("refused-span"));
  auto refused = reporterWith(Consent::kNotGranted);
  EXPECT_FALSE(onDisk("refused-span"));
  refused->report(testSpans(2, 11, "refused-span"));
  EXPECT_FALSE(spool->storeSnapshot("tree", batch(1)))
      << "nor does a watcher on the same spool keep anything";
  refused->setConsent(Consent::kPending);
  EXPECT_TRUE(spool->storeSnapshot("tree", {"pending-snapshot", "application/json", false, 1}));
  refused->report(testSpans(3, 13, "late-span"));
  refused->setConsent(Consent::kNotGranted);  // a refusal given later erases as much
  EXPECT_FALSE(spool->storeSnapshot("tree", batch(1)));
  refused->shutdown(5s);
  EXPECT_FALSE(onDisk("refused-span") || onDisk("late-span") || onDisk("pending-snapshot"));
  const auto counters = refused->counters();
  EXPECT_EQ(counters.droppedSpoolCleared + counters.droppedNoConsent, 5u + 2u + 3u);
  EXPECT_EQ(server.acknowledgedSpanIds().size(), 5u);
}

// The collector takes no more than two spans a batch, never span 3, and no gzip body: a batch of
// five goes plain, then in halves, down to span 3 alone, with a spool or without.
TEST_F(SpanSpool, ABatchTooLargeGoesInHalvesDownToOneSpanAndAGzipBodyRefusedGoesPlain) {
  using Outcome = QENCollectorTransport::Outcome;
  for (const bool withSpool : {false, true}) {
    SCOPED_TRACE(withSpool ? "spooled" : "not spooled");
    QENCapturedAssertions captured;
    std::shared_ptr<QENScriptedCollectorTransport> transport;
    int gzipped = 0;
    transport = std::make_shared<QENScriptedCollectorTransport>([&](int index) {
      const auto post = transport->posts().at(static_cast<std::size_t>(index));
      if (std::count(post.headers.begin(), post.headers.end(),
                     std::pair<std::string, std::string>("Content-Encoding", "gzip")) > 0) {
        ++gzipped;
        return Outcome::kUnsupportedEncoding;
      }
      const auto spans = nlohmann::json::parse(post.body);
      const bool third = std::any_of(spans.begin(), spans.end(), [](const auto& span) {
        return span["id"] == "0000000000000003";
      });
      return spans.size() > 2 || third ? Outcome::kTooLarge : Outcome::kDelivered;
    });
    auto options = spooled("");
    options.transport = transport;
    if (!withSpool)
      options.spool = nullptr;
    QENSpanReporter reporter(options);
    reporter.report(testSpans(5));
    reporter.shutdown(20s);
    EXPECT_EQ(reporter.counters().delivered, 4u);
    EXPECT_EQ(reporter.counters().droppedTooLarge, 1u);
    EXPECT_EQ(reporter.counters().dropped(), 1u);
    EXPECT_EQ(gzipped, 1) << "once refused, gzip is not tried again";
    EXPECT_EQ(captured.messages().size(), 2u) << "the 415, and the span undelivered";
  }
}

void runSQL(const std::string& path, const char* sql, bool keepWriteAheadLog = false) {
  sqlite3* db = nullptr;
  sqlite3_open(path.c_str(), &db);
  sqlite3_exec(db, sql, nullptr, nullptr, nullptr);
  if (keepWriteAheadLog)  // as a process killed before its checkpoint leaves it
    sqlite3_db_config(db, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
  sqlite3_close(db);
}

// Whatever is at the spool's path and is not a spool of this version is moved aside untouched,
// with the files SQLite keeps beside it.
TEST_F(SpanSpool, AFileThatIsNotASpoolIsMovedAsideUntouchedAndAFreshOneMade) {
  // No database; another one, written ahead and not yet checkpointed; a spool of another layout.
  for (const char* sql : {"",
                          "PRAGMA journal_mode=WAL; PRAGMA wal_autocheckpoint=0;"
                          "CREATE TABLE photos(id INTEGER); INSERT INTO photos VALUES(1)",
                          "PRAGMA application_id=1363562067; PRAGMA user_version=7;"
                          "CREATE TABLE batches(id INTEGER)"}) {
    std::filesystem::remove_all(folder_);
    std::filesystem::create_directories(folder_);
    if (*sql == '\0')
      std::ofstream(path()) << std::string(8192, 'Z');
    else
      runSQL(path(), sql, true);
    std::set<std::string> original;
    for (const char* suffix : {"", "-wal"}) {
      if (std::filesystem::exists(path() + suffix))
        original.insert(contentsOf(path() + suffix));
    }
    QENSpanSpool spool({.path = path()});
    EXPECT_EQ(spool.counters().filesMovedAside, 1u);
    EXPECT_TRUE(spool.append(batch(3)));
    const auto aside = [&] {
      std::set<std::string> contents;
      for (const auto& entry : std::filesystem::directory_iterator(folder_)) {
        const std::string name = entry.path().filename().string();
        if (name.find(".unreadable-") != std::string::npos && !name.ends_with("-shm"))
          contents.insert(contentsOf(entry.path()));
      }
      return contents;
    };
    EXPECT_EQ(aside(), original) << "kept, byte for byte, the write-ahead log included";
    spool.clear();
    EXPECT_TRUE(aside().empty()) << "until consent is refused";
  }
}

TEST_F(SpanSpool, TheOldestBatchesGoPastTheByteAndAgeBounds) {
  QENSpanSpool spool({.path = path(), .maximumBytes = 3000});
  ASSERT_TRUE(spool.append(batch(0, 2500)));  // a batch of no spans is bounded all the same
  for (int index = 0; index < 5; ++index)
    ASSERT_TRUE(spool.append(batch(2, 1000)));
  EXPECT_EQ(spool.counters().droppedFull, 4u) << "the two oldest of five";
  const auto third = spool.oldest();
  ASSERT_TRUE(third.has_value());
  spool.remove(third->id);
  runSQL(path(), "UPDATE batches SET created = created - 8 * 24 * 3600");
  EXPECT_FALSE(spool.oldest().has_value());
  EXPECT_EQ(spool.counters().droppedExpired, 4u) << "older than a week";

  QENSpanSpool unbounded({.path = path() + "-unbounded", .maximumBytes = UINT64_MAX});
  ASSERT_TRUE(unbounded.append(batch(1)) && unbounded.append(batch(1)));
  EXPECT_EQ(unbounded.counters().droppedFull, 0u) << "past what SQLite counts, no bound";
}

}  // namespace
