// The process a kill test kills: it reports spans to a collector through a reporter with a
// spool, and says on its standard output what it has persisted, until it is killed. Its first
// line is its process id, by which the test kills it.
//
//   QENSpoolKillChild SPOOL_PATH COLLECTOR_URL spans
//       reports spans with ids 1, 2, 3, ... in batches of ten, printing "persisted N" each time
//       the spool's count of persisted spans changes (spans are persisted in id order);
//   QENSpoolKillChild SPOOL_PATH COLLECTOR_URL trees
//       watches two cold-start trees, snapshots both, completes one, snapshots again as the app
//       goes to the background, and prints "ready".
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <thread>

#include "QENApplication/QENApplicationLifecycle.h"
#include "QENFoundation/QENMonotonicTime.h"
#include "QENSpanReporter.h"
#include "QENUnfinishedTraceWatcher.h"
#include "Support/QENTestSpans.h"

namespace {

QENSpanReporterOptions reporterOptions(const char* path, const char* collector) {
  QENSpanReporterOptions options;
  options.collectorURL = collector;
  options.spool = std::make_shared<QENSpanSpool>(QENSpanSpoolOptions{.path = path});
  options.maximumBatchSpans = 10;
  options.flushInterval = std::chrono::milliseconds(0);
  options.initialBackoff = std::chrono::milliseconds(1);
  options.maximumBackoff = std::chrono::milliseconds(4);
  return options;
}

[[noreturn]] void reportSpans(const QENSpanReporterOptions& options) {
  QENSpanReporter reporter(options);
  std::uint64_t reported = 0;
  std::uint64_t printed = 0;
  for (;;) {
    reporter.report(testSpans(10, static_cast<std::int64_t>(reported) + 1, "kill_test"));
    reported += 10;
    std::uint64_t persisted = reporter.counters().persisted;
    while (persisted + 100 < reported) {  // keeps the queue short: nothing is dropped
      std::this_thread::yield();
      persisted = reporter.counters().persisted;
    }
    if (persisted != printed) {
      std::printf("persisted %llu\n", static_cast<unsigned long long>(persisted));
      std::fflush(stdout);
      printed = persisted;
    }
  }
}

[[noreturn]] void watchTrees(const QENSpanReporterOptions& options) {
  QENUnfinishedTraceWatcher watcher(options.spool, options.encoding,
                                    QENPerformanceMetricAppContext("1", "x"),
                                    std::chrono::milliseconds(0));
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
  const auto completed = QENPerformanceMetric::initWithName("completed_feed", 1.0);
  completed->startMetricWithTime(now - 1);
  watcher.watch(coldStart);
  watcher.watch(completed);
  watcher.snapshotNow();
  completed->stopMetricWithTime(now);
  QENApplicationLifecycle::postDidEnterBackground();  // snapshots again, now without it
  std::printf("ready\n");
  std::fflush(stdout);
  for (;;) {
    std::this_thread::sleep_for(std::chrono::seconds(60));  // idles until it is killed
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fprintf(stderr, "usage: %s SPOOL_PATH COLLECTOR_URL spans|trees\n", argv[0]);
    return 2;
  }
  std::printf("%d\n", static_cast<int>(::getpid()));
  std::fflush(stdout);
  const QENSpanReporterOptions options = reporterOptions(argv[1], argv[2]);
  if (std::strcmp(argv[3], "trees") == 0) {
    watchTrees(options);
  }
  reportSpans(options);
}
