#include <dlfcn.h>
#include <gtest/gtest.h>
#include <netdb.h>

#include <condition_variable>
#include <mutex>
#include <string_view>

#include "QENSpanReporter.h"

namespace {

using namespace std::chrono_literals;

// A name whose resolution stalls until the test lets it go, on whichever thread libcurl resolves
// it. Every other name resolves as usual.
constexpr std::string_view kStalledHost = "stalled-resolver.test";

struct StalledResolution {
  std::mutex mutex;
  std::condition_variable changed;
  bool entered = false;
  bool released = false;
  bool returned = false;
};

StalledResolution& stalled() {
  static StalledResolution resolution;
  return resolution;
}

using GetAddrInfo = int (*)(const char*, const char*, const addrinfo*, addrinfo**);

}  // namespace

// This executable's definition comes before the C library's, for libcurl's resolver thread too.
extern "C" int getaddrinfo(const char* node, const char* service, const addrinfo* hints,
                           addrinfo** result) {
  if (node == nullptr || node != kStalledHost) {
    static const auto resolve = reinterpret_cast<GetAddrInfo>(dlsym(RTLD_NEXT, "getaddrinfo"));
    return resolve(node, service, hints, result);
  }
  StalledResolution& resolution = stalled();
  std::unique_lock lock(resolution.mutex);
  resolution.entered = true;
  resolution.changed.notify_all();
  // Bounded, so that a reporter which waits for the resolver still ends, and fails the test.
  resolution.changed.wait_for(lock, 60s, [&] { return resolution.released; });
  resolution.returned = true;
  resolution.changed.notify_all();
  return EAI_AGAIN;
}

namespace {

// The check is the order of events, not a duration: the reporter must be destroyed, and so stopped
// within its limit, while the name is still resolving, since the test lets the resolution go only
// afterwards.
TEST(SpanReporterSlowResolver, ItsDestructorStopsWithinItsLimitWhileTheCollectorsNameResolves) {
  QENSpanReporterOptions options;
  std::uint64_t droppedAtStop = 0;
  options.didStop = [&](const QENSpanReporterCounters& counters) {
    droppedAtStop = counters.droppedShutDown;
  };
  options.collectorURL = "http://" + std::string(kStalledHost) + ":9411/api/v2/spans";
  options.flushInterval = 0ms;
  options.destructionShutdownLimit = 100ms;
  auto reporter = std::make_unique<QENSpanReporter>(options);
  auto span = std::make_shared<QENThrift::Span>();
  span->setName("span");
  reporter->report({span});

  StalledResolution& resolution = stalled();
  {
    std::unique_lock lock(resolution.mutex);
    resolution.changed.wait(lock, [&] { return resolution.entered; });
  }
  reporter.reset();
  EXPECT_EQ(droppedAtStop, 1u);

  std::unique_lock lock(resolution.mutex);
  EXPECT_FALSE(resolution.returned) << "the reporter waited for the resolver";
  resolution.released = true;
  resolution.changed.notify_all();
  resolution.changed.wait(lock, [&] { return resolution.returned; });
}

}  // namespace
