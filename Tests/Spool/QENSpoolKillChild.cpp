// The process the kill test kills: its first line is its process id, by which the test kills it;
// then it reports spans with ids 1, 2, 3, ... in batches of ten through a reporter with a spool,
// printing "persisted N" each time the spool's count of persisted spans changes (spans are
// persisted in id order), until it is killed.
//
//   QENSpoolKillChild SPOOL_PATH COLLECTOR_URL
#include <unistd.h>

#include <cstdio>
#include <thread>

#include "QENSpanReporter.h"
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

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: %s SPOOL_PATH COLLECTOR_URL\n", argv[0]);
    return 2;
  }
  std::printf("%d\n", static_cast<int>(::getpid()));
  std::fflush(stdout);
  reportSpans(reporterOptions(argv[1], argv[2]));
}
