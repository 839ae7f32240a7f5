#include <gtest/gtest.h>

#include <cmath>

#include "QENEndpointPerformanceMetric.h"
#include "QENURLLoading/QENHTTPURLResponse.h"
#include "QENURLSessionTaskTransactionMetrics+NetworkMetrics.h"
#include "Support/QENAnnotationReaders.h"
#include "Support/QENCapturedAssertions.h"

namespace {

using Metric = QENEndpointPerformanceMetric;
using Transaction = QENURLSessionTaskTransactionMetrics;
using QENTest::Vocabulary;

// A whole second, so that the quarter and eighth seconds below stay exact.
const QENDate kNow = QENDate::dateWithTimeIntervalSinceReferenceDate(
    std::floor(QENDate::date().timeIntervalSinceReferenceDate()));

QENDate at(double secondsFromNow) {
  return QENDate::dateWithTimeIntervalSinceReferenceDate(kNow.timeIntervalSinceReferenceDate() +
                                                         secondsFromNow);
}

// A network load over a new secure connection, every phase present and increasing.
std::shared_ptr<Transaction> networkLoad() {
  auto transaction = std::make_shared<Transaction>();
  transaction->request = std::make_shared<QENURLRequest>(
      QENURL::URLWithString("https://api.example.com/v3/users/me/?fields=id"), "GET");
  transaction->response = std::make_shared<QENHTTPURLResponse>(
      200, QENHTTPURLResponse::HeaderFields{{"X-CDN", "edge"}, {"x-morvane-cache", ""}});
  transaction->resourceFetchType = QENURLSessionTaskMetricsResourceFetchTypeNetworkLoad;
  transaction->fetchStartDate = at(-1.0);
  transaction->domainLookupStartDate = at(-0.99);
  transaction->domainLookupEndDate = at(-0.98);
  transaction->connectStartDate = at(-0.97);
  transaction->secureConnectionStartDate = at(-0.96);
  transaction->secureConnectionEndDate = at(-0.95);
  transaction->connectEndDate = at(-0.95);
  transaction->requestStartDate = at(-0.94);
  transaction->requestEndDate = at(-0.93);
  transaction->responseStartDate = at(-0.5);
  transaction->responseEndDate = at(-0.375);  // 0.125 s, exactly, whatever the date
  transaction->countOfResponseBodyBytesReceived = 10000;
  transaction->countOfResponseHeaderBytesReceived = 500;
  transaction->localAddress = "10.0.0.2";
  return transaction;
}

std::shared_ptr<QENURLSessionTaskMetrics> taskMetrics(
    std::vector<std::shared_ptr<const Transaction>> transactions,
    std::string className = "__NSCFURLSessionTaskMetrics") {
  auto metrics = std::make_shared<QENURLSessionTaskMetrics>();
  metrics->className = std::move(className);
  metrics->transactionMetrics = std::move(transactions);
  metrics->taskInterval = {at(-1.0), at(-0.3)};
  return metrics;
}

std::shared_ptr<Metric> measure(const std::shared_ptr<const Transaction>& transaction,
                                std::string className = "__NSCFURLSessionTaskMetrics") {
  return Metric::initWithRequest(transaction->request, std::nullopt,
                                 taskMetrics({transaction}, std::move(className)));
}

Vocabulary::Pointer find(const Metric& metric, std::string_view key) {
  return QENTest::find(metric.binaryAnnotations(), key);
}

std::vector<std::string> childNames(const Metric& metric) {
  return QENTest::namesOf(metric.childMetrics());
}

TEST(EndpointMetric, MeasuresAnAcceptedRequestWithPhasesSizeSpeedAndNotification) {
  QENTest::PostedIntegers postedSpeeds(QENPerformanceMetricResourceDownloadNetworkSpeedNotification,
                                       "net.speed_kbps");
  const auto metric = measure(networkLoad());

  EXPECT_EQ(metric->name(), "resource_/v3/users/me/");
  EXPECT_TRUE(metric->isFinished() && metric->isValid());
  EXPECT_FALSE(metric->isObservingMetricWillStart()) << "a request adopts no other metric";
  EXPECT_NEAR(metric->metricTime(), 0.7, 1e-6) << "timed by the task interval";
  EXPECT_EQ(childNames(*metric), (std::vector<std::string>{"dns", "conn", "tls", "req", "resp"}));
  const auto response = metric->childMetrics().back();
  EXPECT_NEAR(response->startTime(), at(-0.5).monotonicTime(), 1e-6);
  EXPECT_NEAR(response->metricTime(), 0.125, 1e-6);
  EXPECT_EQ(metric->annotations().size(), 10u);
  auto keys = QENTest::keysOf(metric->binaryAnnotations());
  keys.resize(10);
  EXPECT_EQ(keys,
            (std::vector<std::string>{"has_valid_metrics", "conn_reused", "endpoint_id",
                                      "net.response_status", "net.expected_size", "net.speed_kbps",
                                      "ip.version", "cdn.name", "http.method", "dns_start"}));
  EXPECT_EQ(metric->binaryAnnotations().size(), 9u + 15u);
  EXPECT_EQ(Vocabulary::int64ValueFromBinaryAnnotation(find(*metric, "net.expected_size")), 10500);
  EXPECT_EQ(postedSpeeds.values, std::vector<std::int32_t>{672})
      << "10500 bytes x 8 / 0.125 s / 1000";
  EXPECT_EQ(Vocabulary::stringValueFromBinaryAnnotation(find(*metric, "endpoint_id")),
            "https://api.example.com/v3/users/me/");
  EXPECT_EQ(Vocabulary::stringValueFromBinaryAnnotation(find(*metric, "cdn.name")), "edge");
  EXPECT_EQ(metric->urlHeaderSentTo(), metric->request()->URL());
}

TEST(EndpointMetric, SkipsMissingEmptyAndReversedPhases) {
  QENCapturedAssertions captured;
  auto reused = networkLoad();
  reused->isReusedConnection = true;
  reused->domainLookupStartDate = reused->domainLookupEndDate = std::nullopt;
  reused->connectStartDate = reused->connectEndDate = std::nullopt;
  reused->secureConnectionStartDate = reused->secureConnectionEndDate = std::nullopt;
  const auto metric = measure(reused);
  EXPECT_EQ(childNames(*metric), (std::vector<std::string>{"req", "resp"}));
  EXPECT_TRUE(Vocabulary::boolValueFromBinaryAnnotation(find(*metric, "conn_reused")));

  auto noStart = networkLoad();
  noStart->domainLookupStartDate = std::nullopt;
  const auto measuredWithoutStart = measure(noStart);
  EXPECT_EQ(childNames(*measuredWithoutStart).front(), "conn") << "no span from the machine's boot";
  EXPECT_NE(measuredWithoutStart->annotations().front()->value(), "dns_start");
  auto empty = networkLoad();
  empty->requestEndDate = empty->requestStartDate;
  EXPECT_EQ(childNames(*measure(empty)).size(), 4u);
  EXPECT_TRUE(captured.records().empty()) << "a zero-length phase is dropped silently";
  auto reversed = networkLoad();
  reversed->requestEndDate = at(-0.95);
  EXPECT_EQ(childNames(*measure(reversed)).size(), 4u);
  ASSERT_EQ(captured.records().size(), 1u);
  EXPECT_EQ(captured.records()[0].message.rfind("Metric stop time ", 0), 0u);
}

std::optional<std::string> invalidReason(const Metric& metric) {
  const auto reason = find(metric, "invalid_metrics_reason");
  return reason ? Vocabulary::stringValueFromBinaryAnnotation(reason) : std::nullopt;
}

TEST(EndpointMetric, RejectsWhatIsNotOneNetworkLoadWithItsReason) {
  QENCapturedAssertions captured;
  const auto redirect =
      Metric::initWithRequest(nullptr, std::nullopt, taskMetrics({networkLoad(), networkLoad()}));
  EXPECT_EQ(redirect->name(), "resource_(null)");
  EXPECT_EQ(invalidReason(*redirect), "metrics.count");
  EXPECT_TRUE(redirect->isStarted() && redirect->isFinished());
  EXPECT_EQ(redirect->invalidateReason(), QENPerformanceMetricStopReasonUnknown);

  auto cached = networkLoad();
  cached->resourceFetchType = QENURLSessionTaskMetricsResourceFetchTypeLocalCache;
  EXPECT_EQ(invalidReason(*measure(cached)), "resource.fetch.type");

  const auto unknown =
      Metric::initWithRequest(nullptr, std::nullopt, taskMetrics({}, "OkHttpMetrics"));
  EXPECT_EQ(invalidReason(*unknown), "unexpected.metric.type");
  EXPECT_FALSE(unknown->isStarted());
  EXPECT_EQ(captured.messages(), std::vector<std::string>{"unexpected metric type: OkHttpMetrics"});

  auto cronet = networkLoad();
  cronet->responseEndDate = cronet->fetchStartDate;
  const auto accepted = measure(cronet, "CronetMetrics");
  EXPECT_TRUE(accepted->isFinished() && accepted->isValid()) << "equal dates pass";
  cronet->responseEndDate = at(-2);
  EXPECT_EQ(invalidReason(*measure(cronet, "CronetMetrics")), "cronet.endDateNotLater");
  EXPECT_EQ(invalidReason(
                *Metric::initWithRequest(nullptr, std::nullopt, taskMetrics({}, "CronetMetrics"))),
            "cronet.fetchStartDate");
}

TEST(EndpointMetric, FallsBackToTheAnnouncedLengthAndDefaultsWhatIsMissing) {
  auto counted = networkLoad();
  counted->countOfResponseBodyBytesReceived = counted->countOfResponseHeaderBytesReceived = 0;
  counted->response =
      std::make_shared<QENHTTPURLResponse>(200, QENHTTPURLResponse::HeaderFields{}, 2048);
  const auto announced = measure(counted);
  EXPECT_EQ(Vocabulary::int64ValueFromBinaryAnnotation(find(*announced, "net.expected_size")),
            2048);
  EXPECT_EQ(find(*announced, "net.speed_kbps"), nullptr) << "speed 0 counts as none";

  auto plain = networkLoad();
  plain->countOfResponseBodyBytesReceived = plain->countOfResponseHeaderBytesReceived = 0;
  plain->response = std::make_shared<QENURLResponse>();
  plain->request =
      std::make_shared<QENURLRequest>(QENURL::URLWithString("ftp://files/x"), std::nullopt);
  const auto metric = measure(plain);
  EXPECT_FALSE(find(*metric, "net.expected_size") || find(*metric, "cdn.name"));
  EXPECT_EQ(Vocabulary::int64ValueFromBinaryAnnotation(find(*metric, "net.response_status")), 0);
  EXPECT_EQ(Vocabulary::stringValueFromBinaryAnnotation(find(*metric, "http.method")), "");
}

}  // namespace
