#include "QENURLSessionTaskTransactionMetrics+NetworkMetrics.h"

#include <algorithm>
#include <limits>

#include "QENNumericConversion.h"
#include "QENThrift/tracing_clientConstants.h"

namespace {

using Record = QENNetworkMetrics::Record;
using Vocabulary = QENThrift::BinaryAnnotationQENAdditions;
using PhaseDate = std::optional<QENDate> Record::*;

std::int64_t offsetInMilliseconds(const Record& record, PhaseDate phase) {
  if (!record.fetchStartDate) {
    return 0;
  }
  const std::optional<QENDate>& date = record.*phase;
  const double seconds = date ? date->timeIntervalSinceReferenceDate() -
                                    record.fetchStartDate->timeIntervalSinceReferenceDate()
                              : 0.0;
  return QENNetworkMetrics::toMilliseconds(seconds);
}

}  // namespace

QENNetworkMetrics::AnnotationList QENNetworkMetrics::cdnAnnotations(
    const std::function<std::optional<std::string>(std::string_view name)>& header) {
  using Keys = QENThrift::tracing_clientConstants;
  AnnotationList annotations;
  for (const auto& [name, key] :
       {std::pair{"x-cdn", Keys::CDN_NAME()}, std::pair{"x-morvane-cache", Keys::CDN_CACHE()}}) {
    const std::optional<std::string> value = header(name);
    if (value && !value->empty()) {
      annotations.push_back(Vocabulary::annotationWithKeyString(key, *value));
    }
  }
  return annotations;
}

std::int64_t QENNetworkMetrics::toMilliseconds(double seconds) {
  return QENTruncateToInt64(seconds * 1000.0);
}

std::int64_t QENNetworkMetrics::dnsStartInMilliseconds(const Record& record) {
  return offsetInMilliseconds(record, &Record::domainLookupStartDate);
}
std::int64_t QENNetworkMetrics::dnsEndInMilliseconds(const Record& record) {
  return offsetInMilliseconds(record, &Record::domainLookupEndDate);
}
std::int64_t QENNetworkMetrics::tcpStartInMilliseconds(const Record& record) {
  return offsetInMilliseconds(record, &Record::connectStartDate);
}
std::int64_t QENNetworkMetrics::tcpEndInMilliseconds(const Record& record) {
  return offsetInMilliseconds(record, &Record::connectEndDate);
}
std::int64_t QENNetworkMetrics::tlsStartInMilliseconds(const Record& record) {
  return offsetInMilliseconds(record, &Record::secureConnectionStartDate);
}
std::int64_t QENNetworkMetrics::reqStartInMilliseconds(const Record& record) {
  return offsetInMilliseconds(record, &Record::requestStartDate);
}
std::int64_t QENNetworkMetrics::respStartInMilliseconds(const Record& record) {
  return offsetInMilliseconds(record, &Record::responseStartDate);
}
std::int64_t QENNetworkMetrics::respEndInMilliseconds(const Record& record) {
  return offsetInMilliseconds(record, &Record::responseEndDate);
}

QENNetworkMetrics::AnnotationPointer QENNetworkMetrics::dnsStart(const Record& record) {
  return Vocabulary::annotationWithKeyInt64("dns_start", dnsStartInMilliseconds(record));
}
QENNetworkMetrics::AnnotationPointer QENNetworkMetrics::dnsEnd(const Record& record) {
  return Vocabulary::annotationWithKeyInt64("dns_end", dnsEndInMilliseconds(record));
}
QENNetworkMetrics::AnnotationPointer QENNetworkMetrics::tcpStart(const Record& record) {
  return Vocabulary::annotationWithKeyInt64("tcp_start", tcpStartInMilliseconds(record));
}
QENNetworkMetrics::AnnotationPointer QENNetworkMetrics::tcpEnd(const Record& record) {
  return Vocabulary::annotationWithKeyInt64("tcp_end", tcpEndInMilliseconds(record));
}
QENNetworkMetrics::AnnotationPointer QENNetworkMetrics::tlsStart(const Record& record) {
  return Vocabulary::annotationWithKeyInt64("tls_start", tlsStartInMilliseconds(record));
}
QENNetworkMetrics::AnnotationPointer QENNetworkMetrics::reqStart(const Record& record) {
  return Vocabulary::annotationWithKeyInt64("req_start", reqStartInMilliseconds(record));
}
QENNetworkMetrics::AnnotationPointer QENNetworkMetrics::respStart(const Record& record) {
  return Vocabulary::annotationWithKeyInt64("resp_start", respStartInMilliseconds(record));
}
QENNetworkMetrics::AnnotationPointer QENNetworkMetrics::respEnd(const Record& record) {
  return Vocabulary::annotationWithKeyInt64("resp_end", respEndInMilliseconds(record));
}

QENNetworkMetrics::Milliseconds QENNetworkMetrics::getConnectionMetricsInMilliseconds(
    const Record& record) {
  return {
      {"dns_start", dnsStartInMilliseconds(record)},
      {"dns_end", dnsEndInMilliseconds(record)},
      {"tcp_start", tcpStartInMilliseconds(record)},
      {"tls_start", tlsStartInMilliseconds(record)},
      {"tcp_end", tcpEndInMilliseconds(record)},
      {"req_start", reqStartInMilliseconds(record)},
      {"resp_start", respStartInMilliseconds(record)},
      {"resp_end", respEndInMilliseconds(record)},
  };
}

QENNetworkMetrics::Milliseconds QENNetworkMetrics::getCalculatedConnectionMetricsInMilliseconds(
    const Record& record) {
  // tcp_time ends at the TLS start, because the platform's connect end includes the handshake.
  const std::int64_t dnsTime =
      QENWrappingDifference(dnsEndInMilliseconds(record), dnsStartInMilliseconds(record));
  const std::int64_t tcpTime =
      QENWrappingDifference(tlsStartInMilliseconds(record), tcpStartInMilliseconds(record));
  const std::int64_t tlsTime =
      QENWrappingDifference(tcpEndInMilliseconds(record), tlsStartInMilliseconds(record));
  const std::int64_t ttfb =
      QENWrappingDifference(respStartInMilliseconds(record), reqStartInMilliseconds(record));
  const std::int64_t ttlb =
      QENWrappingDifference(respEndInMilliseconds(record), respStartInMilliseconds(record));
  return {
      {"dns_time", dnsTime},
      {"tcp_time", tcpTime},
      {"tls_time", tlsTime},
      {"ttfb", ttfb},
      {"ttlb", ttlb},
      // Leaves the name lookup out on purpose.
      {"latency", QENWrappingSum(QENWrappingSum(tlsTime, tcpTime), QENWrappingSum(ttfb, ttlb))},
      {"latency_sanity_check",
       QENWrappingDifference(respEndInMilliseconds(record), tcpStartInMilliseconds(record))},
  };
}

QENNetworkMetrics::AnnotationList QENNetworkMetrics::getConnectionMetrics(const Record& record) {
  return {dnsStart(record), dnsEnd(record),   tcpStart(record),  tcpEnd(record),
          tlsStart(record), reqStart(record), respStart(record), respEnd(record)};
}

QENNetworkMetrics::AnnotationList QENNetworkMetrics::getCalculatedConnectionMetrics(
    const Record& record) {
  const Milliseconds durations = getCalculatedConnectionMetricsInMilliseconds(record);
  AnnotationList annotations;
  annotations.reserve(durations.size());
  for (const auto& [key, milliseconds] : durations) {
    annotations.push_back(
        Vocabulary::annotationWithKeyInt64(key, static_cast<std::int32_t>(milliseconds)));
  }
  return annotations;
}

QENNetworkMetrics::AnnotationList QENNetworkMetrics::getAllConnectionMetrics(const Record& record) {
  AnnotationList annotations = getConnectionMetrics(record);
  const AnnotationList calculated = getCalculatedConnectionMetrics(record);
  annotations.insert(annotations.end(), calculated.begin(), calculated.end());
  return annotations;
}

std::int64_t QENNetworkMetrics::bytesReceived(const Record& record) {
  return QENWrappingSum(record.countOfResponseBodyBytesReceived,
                        record.countOfResponseHeaderBytesReceived);
}

std::int32_t QENNetworkMetrics::kilobitsPerSec(const Record& record) {
  if (!record.responseEndDate || !record.responseStartDate) {
    return -1;
  }
  const double interval = record.responseEndDate->timeIntervalSinceReferenceDate() -
                          record.responseStartDate->timeIntervalSinceReferenceDate();
  if (!(interval > 0.0)) {
    return -1;
  }
  // Times 8 wraps like any unchecked integer product; the quotient truncates and saturates.
  const auto bits =
      static_cast<std::int64_t>(static_cast<std::uint64_t>(bytesReceived(record)) * 8);
  const std::int64_t kilobits = QENTruncateToInt64(static_cast<double>(bits) / interval / 1000.0);
  return static_cast<std::int32_t>(
      std::clamp<std::int64_t>(kilobits, std::numeric_limits<std::int32_t>::min(),
                               std::numeric_limits<std::int32_t>::max()));
}

bool QENNetworkMetrics::isLocalAddressIPV6(const Record& record) {
  return record.localAddress && record.localAddress->find(':') != std::string::npos;
}

std::int64_t QENNetworkMetrics::localAddressIPVersion(const Record& record) {
  return isLocalAddressIPV6(record) ? 6 : 4;
}

std::string QENNetworkMetrics::absoluteEndpointId(const Record& record) {
  if (record.request == nullptr || record.request->URL() == nullptr) {
    return std::string();
  }
  return record.request->URL()->absoluteStringRemovingQuery();
}
