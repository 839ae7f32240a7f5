#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <mutex>
#include <set>
#include <thread>

#include "QENFoundation/QENMonotonicTime.h"
#include "QENImageDownloadPerformanceMetricManager.h"
#include "Support/QENAnnotationReaders.h"

namespace {

using ImageMetric = QENImageDownloadPerformanceMetric;
using Manager = QENImageDownloadPerformanceMetricManager;
using Transaction = QENURLSessionTaskTransactionMetrics;

std::shared_ptr<ImageMetric> imageMetric(std::string_view url) {
  return ImageMetric::initWithName("image_load", 1.0, QENURL::URLWithString(url), false);
}

std::shared_ptr<QENPerformanceMetric> child(const QENPerformanceMetric& metric,
                                            std::string_view name) {
  const auto children = metric.childMetrics();
  const auto found = std::find_if(children.begin(), children.end(),
                                  [&](const auto& candidate) { return candidate->name() == name; });
  return found == children.end() ? nullptr : *found;
}

std::optional<std::int64_t> integer(const QENPerformanceMetric& metric, std::string_view key) {
  return QENTest::integerFor(metric.binaryAnnotations(), key);
}

TEST(ImageDownloadMetric, TimesACacheMissThenTheNetworkLoad) {
  const double t = QENMonotonicTimeGetCurrent();
  const auto metric = imageMetric("https://i.example.com/miss.jpg");
  EXPECT_EQ(metric->metricCause(), 4);
  EXPECT_EQ(metric->binaryAnnotations().front()->key(), "Url");
  metric->startMetricWithTime(t);
  metric->imageNodeWillLoadImageFromCacheWithStartTime(t);
  metric->imageNodeDidFailToLoadImageFromCacheWithEndTime(t + 0.01);
  metric->imageNodeWillLoadImageFromNetworkWithStartTime(t + 0.01);
  const auto network = metric->loadImageFromNetworkMetric();
  metric->imageNodeWillLoadImageFromNetworkWithStartTime(t + 0.02);
  EXPECT_EQ(metric->loadImageFromNetworkMetric(), network) << "made once";
  metric->setLoadImageFromNetworkMetric(nullptr);
  EXPECT_EQ(metric->loadImageFromNetworkMetric(), nullptr);
  metric->setLoadImageFromNetworkMetric(network);
  metric->imageNodeDidLoadImage({}, nullptr, 1, {{"x-cdn", "edge"}, {"x-morvane-cache", ""}}, 200,
                                t + 0.3);

  const auto cache = child(*metric, "load_image_from_cache");
  EXPECT_EQ(cache->stopTime(), t + 0.01);
  EXPECT_EQ(integer(*cache, "load_image_cache"), 0);
  EXPECT_EQ(network->startTime(), t + 0.01);
  EXPECT_EQ(network->stopTime(), t + 0.3);
  EXPECT_EQ(integer(*metric, "data.source"), 1);
  EXPECT_EQ(integer(*metric, "net.response_status"), 200);
  EXPECT_NE(integer(*metric, "cdn.name"), std::nullopt);
  EXPECT_EQ(integer(*metric, "cdn.cache"), std::nullopt) << "an empty header adds nothing";

  metric->stopMetricWithTime(t + 0.4);
  const std::size_t annotationCount = metric->binaryAnnotations().size();
  metric->imageNodeDidLoadImage({}, nullptr, 2, {}, 500, t + 0.5);
  EXPECT_EQ(metric->binaryAnnotations().size(), annotationCount) << "nothing after the end";
  EXPECT_EQ(
      Manager::processMetrics(std::make_shared<QENURLSessionTaskMetrics>(), metric->imageURL()),
      metric);
}

TEST(ImageDownloadMetric, KeepsTheCacheChildRunningOnAnEarlierEndAndMarksAHit) {
  const double t = QENMonotonicTimeGetCurrent();
  const auto metric = imageMetric("https://i.example.com/hit.jpg");
  metric->imageNodeWillLoadImageFromCacheWithStartTime(t);
  metric->imageNodeDidLoadImageFromCacheWithEndTime(t - 1);
  EXPECT_TRUE(metric->loadImageFromCacheMetric()->isInFlight());
  metric->imageNodeDidLoadImageFromCacheWithEndTime(t + 0.02);
  EXPECT_EQ(integer(*metric->loadImageFromCacheMetric(), "load_image_cache"), 1);
  EXPECT_EQ(child(*metric, "load_image_from_network"), nullptr);

  metric->imageNodeWillStartDisplayAsynchronously(t + 0.03);
  metric->imageNodeDidFinishDecodingWithEndTime(t + 0.05);
  EXPECT_EQ(child(*metric, "display_did_finish")->startTime(), t + 0.03);
  EXPECT_EQ(ImageMetric::initWithName("x", 1.0, nullptr, false), nullptr);

  const std::set<std::int32_t> invalidating = {102, 103,  108,  110,  118,  177,  190,
                                               801, 4701, 6572, 7070, 7071, 8352, 8353};
  for (const std::int32_t listed : invalidating) {
    for (const std::int32_t type : {listed - 1, listed, listed + 1}) {
      EXPECT_EQ(metric->shouldInvalidate(QENTest::eventOfType(type)), invalidating.contains(type))
          << type;
    }
  }
  EXPECT_FALSE(metric->shouldInvalidate(nullptr));
  Manager::processMetrics(nullptr, metric->imageURL());
}

std::shared_ptr<Transaction> transfer(double start, double seconds, std::int64_t bytes) {
  auto transaction = std::make_shared<Transaction>();
  // A whole second, so that the dyadic durations below survive the subtraction exactly.
  const double now = std::floor(QENDate::date().timeIntervalSinceReferenceDate());
  transaction->requestStartDate = QENDate::dateWithTimeIntervalSinceReferenceDate(now + start);
  transaction->requestEndDate = transaction->requestStartDate;  // zero length: no child
  transaction->responseStartDate =
      QENDate::dateWithTimeIntervalSinceReferenceDate(now + start + 0.5);
  transaction->responseEndDate =
      QENDate::dateWithTimeIntervalSinceReferenceDate(now + start + 0.5 + seconds);
  transaction->countOfResponseBodyBytesReceived = bytes;
  return transaction;
}

std::shared_ptr<QENURLSessionTaskMetrics> task(
    std::vector<std::shared_ptr<const Transaction>> all) {
  auto metrics = std::make_shared<QENURLSessionTaskMetrics>();
  metrics->transactionMetrics = std::move(all);
  return metrics;
}

TEST(ImageDownloadMetricManager, AveragesTheTransactionsThatHaveSpeedAndSize) {
  QENTest::PostedIntegers posted(QENPerformanceMetricImageDownloadNetworkSpeedNotification,
                                 "net.speed_kbps");
  const auto averaged = imageMetric("https://i.example.com/avg.jpg");
  // 10,000 bytes at 640 kbps (0.125 s) and 3,133 bytes at 401 kbps (0.0625 s): both means
  // truncate, 6566.5 and 520.5.
  // An absent entry in the host's list is skipped.
  Manager::processMetrics(
      task({nullptr, transfer(-2, 0.125, 10000), nullptr, transfer(-1, 0.0625, 3133)}),
      averaged->imageURL());
  EXPECT_EQ(integer(*averaged, "net.expected_size"), 6566);
  EXPECT_EQ(integer(*averaged, "net.speed_kbps"), 520);
  EXPECT_EQ(posted.values, std::vector<std::int32_t>{520});
  const auto total = child(*averaged, "image_network_total");
  ASSERT_NE(total, nullptr);
  EXPECT_EQ(total->childMetrics().size(), 2u) << "one response child per transaction";
  EXPECT_NEAR(total->childMetrics().front()->metricTime(), 0.125, 1e-6);
  EXPECT_EQ(integer(*averaged, "ip.version"), 4);
  EXPECT_NE(integer(*averaged, "dns_start"), std::nullopt);

  auto noSpeed = transfer(-2, 0.1, 10000);
  noSpeed->responseStartDate.reset();
  const auto partly = imageMetric("https://i.example.com/partly.jpg");
  Manager::processMetrics(task({noSpeed, transfer(-1, 0.03125, 5000)}), partly->imageURL());
  EXPECT_EQ(integer(*partly, "net.expected_size"), 5000);
  EXPECT_EQ(integer(*partly, "net.speed_kbps"), 1280) << "only the transaction with a speed";

  const auto none = imageMetric("https://i.example.com/none.jpg");
  Manager::processMetrics(task({noSpeed}), none->imageURL());
  EXPECT_EQ(integer(*none, "net.expected_size"), std::nullopt);
  EXPECT_NE(integer(*none, "conn_reused"), std::nullopt);
  EXPECT_NE(child(*none, "image_network_total"), nullptr);
  EXPECT_EQ(posted.values.size(), 2u);

  EXPECT_EQ(Manager::processMetrics(task({}), none->imageURL()), nullptr) << "already processed";

  // Byte counts near the top of the range wrap when summed, as a transaction's own count does
  // (never undefined behaviour): nine times 2^60 - 1 wraps to -8070450532247928841, whose ninth
  // truncates to -896716725805325426.
  const auto huge = imageMetric("https://i.example.com/huge.jpg");
  Manager::processMetrics(task({9, transfer(-2, 1000, (std::int64_t{1} << 60) - 1)}),
                          huge->imageURL());
  EXPECT_EQ(integer(*huge, "net.expected_size"), -896716725805325426);
}

TEST(ImageDownloadMetricManager, MatchesOnTheCDNByPathAndElsewhereByEqualURL) {
  Manager::setImageCDNHostDomain("qenimg.com");
  const auto onCDN = imageMetric("https://i1.qenimg.com/236x/ab/cd.jpg?w=1");
  const auto offCDN = imageMetric("https://other.example.com/ab/cd.jpg?w=1");
  const auto url = [](std::string_view text) { return QENURL::URLWithString(text); };
  EXPECT_EQ(Manager::processMetrics(task({}), url("https://i2.qenimg.com/236x/ab/ef.jpg")),
            nullptr);
  EXPECT_EQ(Manager::processMetrics(task({}), url("https://other.example.com/ab/cd.jpg?w=2")),
            nullptr);
  EXPECT_EQ(Manager::processMetrics(task({}), url("https://i2.qenimg.com/236x/ab/cd.jpg?w=9")),
            onCDN);
  EXPECT_EQ(Manager::processMetrics(task({}), url("https://other.example.com/ab/cd.jpg?w=1")),
            offCDN);
}

// Threads register metrics and others match them as soon as they are registered, while a host
// replaces the manager's lock meanwhile (under ThreadSanitizer: no operation touches the list
// under a lock that is no longer the manager's).
TEST(ImageDownloadMetricManager, MatchesEachRegisteredMetricOnceUnderConcurrency) {
  constexpr int kPerThread = 200;
  const auto urlFor = [](int thread, int index) {
    return "https://c.example.com/" + std::to_string(thread) + "/" + std::to_string(index);
  };
  std::mutex matchedMutex;
  std::vector<std::shared_ptr<ImageMetric>> matched;
  std::array<std::atomic<int>, 2> registered{};
  std::atomic<bool> finished{false};
  std::thread lockReplacer([&] {
    while (!finished)
      Manager::sharedMetricManager().setLock(std::make_shared<QENLock>("replacement"));
  });
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 2; ++thread) {
    threads.emplace_back([&, thread] {
      for (int index = 0; index < kPerThread; ++index) {
        imageMetric(urlFor(thread, index));  // kept alive by the manager alone
        ++registered[thread];
        registered[thread].notify_all();
      }
    });
    threads.emplace_back([&, thread] {
      for (int index = 0; index < kPerThread; ++index) {
        for (int seen = registered[thread]; seen <= index; seen = registered[thread])
          registered[thread].wait(seen);
        const auto metric =
            Manager::processMetrics(task({}), QENURL::URLWithString(urlFor(thread, index)));
        const std::lock_guard guard(matchedMutex);
        matched.push_back(metric);
      }
    });
  }
  for (auto& thread : threads)
    thread.join();
  finished = true;
  lockReplacer.join();
  std::sort(matched.begin(), matched.end());
  EXPECT_NE(matched.front(), nullptr) << "none lost: a null would sort first";
  EXPECT_EQ(std::unique(matched.begin(), matched.end()), matched.end()) << "each matched once";
  EXPECT_EQ(matched.size(), 2u * kPerThread);
  const auto hostLock = std::make_shared<QENLock>("host lock");
  Manager::sharedMetricManager().setLock(hostLock);
  EXPECT_EQ(Manager::sharedMetricManager().lock(), hostLock) << "the host's lock is the one used";
}

}  // namespace
