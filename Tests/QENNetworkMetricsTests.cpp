#include <gtest/gtest.h>

#include "QENURLSessionTaskTransactionMetrics+NetworkMetrics.h"
#include "Support/QENAnnotationReaders.h"

namespace {

using Record = QENURLSessionTaskTransactionMetrics;
using Metrics = QENNetworkMetrics;

// Near the reference date, where the test's decimal intervals survive the subtraction exactly.
QENDate at(double seconds) {
  return QENDate::dateWithTimeIntervalSinceReferenceDate(seconds);
}

// A secure connection with every phase: lookup 0-10 ms, connect 10-60 ms (TLS from 30 ms),
// request 60-70 ms, response 100-300 ms.
Record fullRecord() {
  Record record;
  record.fetchStartDate = at(0);
  record.domainLookupStartDate = at(0.0);
  record.domainLookupEndDate = at(0.010);
  record.connectStartDate = at(0.010);
  record.secureConnectionStartDate = at(0.030);
  record.connectEndDate = at(0.060);
  record.requestStartDate = at(0.060);
  record.responseStartDate = at(0.100);
  record.responseEndDate = at(0.300);
  return record;
}

using QENTest::integersOf;

TEST(NetworkMetrics, OffsetsAndDurationsOfASecureConnection) {
  const Record record = fullRecord();
  EXPECT_EQ(integersOf(Metrics::getConnectionMetrics(record)),
            (std::vector<std::pair<std::string, std::int64_t>>{{"dns_start", 0},
                                                               {"dns_end", 10},
                                                               {"tcp_start", 10},
                                                               {"tcp_end", 60},
                                                               {"tls_start", 30},
                                                               {"req_start", 60},
                                                               {"resp_start", 100},
                                                               {"resp_end", 300}}));
  EXPECT_EQ(Metrics::getCalculatedConnectionMetricsInMilliseconds(record),
            (Metrics::Milliseconds{{"dns_time", 10},
                                   {"tcp_time", 20},
                                   {"tls_time", 30},
                                   {"ttfb", 40},
                                   {"ttlb", 200},
                                   {"latency", 290},
                                   {"latency_sanity_check", 290}}));
  EXPECT_EQ(Metrics::getAllConnectionMetrics(record).size(), 15u);
}

TEST(NetworkMetrics, MissingDatesReadAsTheFetchStart) {
  Record noFetchStart = fullRecord();
  noFetchStart.fetchStartDate.reset();
  noFetchStart.countOfResponseBodyBytesReceived = 125000;
  for (const auto& [key, value] : integersOf(Metrics::getAllConnectionMetrics(noFetchStart))) {
    EXPECT_EQ(value, 0) << key;
  }
  EXPECT_EQ(Metrics::kilobitsPerSec(noFetchStart), 5000) << "speed needs only the response dates";

  Record reused;
  reused.fetchStartDate = at(0);
  reused.requestStartDate = at(0.002);
  reused.responseStartDate = at(0.1205);
  reused.responseEndDate = at(0.200);
  const auto durations = Metrics::getCalculatedConnectionMetricsInMilliseconds(reused);
  EXPECT_EQ(Metrics::respStartInMilliseconds(reused), 120) << "truncated, not rounded";
  EXPECT_EQ(durations.at("dns_time") | durations.at("tcp_time") | durations.at("tls_time"), 0);
  EXPECT_EQ(durations.at("latency"), durations.at("ttfb") + durations.at("ttlb"));
  EXPECT_EQ(durations.at("latency_sanity_check"), 200);

  Record plain = fullRecord();  // no TLS: tcp_time goes negative, the sum stays right
  plain.secureConnectionStartDate.reset();
  const auto plainDurations = Metrics::getCalculatedConnectionMetricsInMilliseconds(plain);
  EXPECT_EQ(plainDurations.at("tcp_time"), -10);
  EXPECT_EQ(plainDurations.at("tls_time"), 60);
}

TEST(NetworkMetrics, SpeedBytesAndAddress) {
  Record record;
  record.responseStartDate = at(0);
  record.responseEndDate = at(1);
  record.countOfResponseHeaderBytesReceived = 25000;
  record.countOfResponseBodyBytesReceived = 100000;
  EXPECT_EQ(Metrics::bytesReceived(record), 125000);
  EXPECT_EQ(Metrics::kilobitsPerSec(record), 1000);
  record.responseEndDate = at(3);
  record.countOfResponseHeaderBytesReceived = 0;
  record.countOfResponseBodyBytesReceived = 1000;
  EXPECT_EQ(Metrics::kilobitsPerSec(record), 2);
  for (const auto end : {std::optional(at(0)), std::optional(at(-1)), std::optional<QENDate>()}) {
    record.responseEndDate = end;
    EXPECT_EQ(Metrics::kilobitsPerSec(record), -1);
  }
  record.responseEndDate = at(1e-12);
  record.countOfResponseBodyBytesReceived = INT64_MAX;
  EXPECT_EQ(Metrics::kilobitsPerSec(record), INT32_MIN) << "times 8 wraps to -8; -8e9 saturates";

  EXPECT_EQ(Metrics::localAddressIPVersion(record), 4);
  record.localAddress = "fe80::1";
  EXPECT_EQ(Metrics::localAddressIPVersion(record), 6);
  EXPECT_EQ(Metrics::absoluteEndpointId(record), "");
}

}  // namespace
