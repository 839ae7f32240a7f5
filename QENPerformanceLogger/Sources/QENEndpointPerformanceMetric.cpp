#include "QENEndpointPerformanceMetric.h"

#include <array>
#include <cctype>
#include <cstdio>
#include <limits>
#include <mutex>

#include "Annotation+QENAdditions.h"
#include "BinaryAnnotation+QENAdditions.h"
#include "QENAssert.h"
#include "QENBundle/QENBundle.h"
#include "QENFoundation/QENJSONSerialization.h"
#include "QENFoundation/QENLockGuard.h"
#include "QENFoundation/QENMonotonicTime.h"
#include "QENFoundation/QENNotificationCenter.h"
#include "QENNumericConversion.h"
#include "QENThrift/tracing_clientConstants.h"
#include "QENURLLoading/QENHTTPURLResponse.h"
#include "QENURLSessionTaskTransactionMetrics+NetworkMetrics.h"
#include "performance_tracing_clientConstants.h"

namespace {

using QENThrift::AnnotationQENAdditions;
using Vocabulary = QENThrift::BinaryAnnotationQENAdditions;
using Keys = performance_tracing_clientConstants;
using ClientKeys = QENThrift::tracing_clientConstants;

// Child span names, one per connection phase of QENNetworkMetrics::kConnectionPhases.
constexpr std::array<std::string_view, 5> kPhaseNames = {"dns", "conn", "tls", "req", "resp"};

std::string metricNameForRequest(const std::shared_ptr<const QENURLRequest>& request) {
  const bool hasURL = request != nullptr && request->URL() != nullptr;
  return "resource_" + (hasURL ? request->URL()->relativePath() : std::string("(null)"));
}

// Runs of white space become two blanks, the separator the frame columns are then split at.
std::vector<std::string> frameColumns(const std::string& line) {
  std::string normalised;
  for (std::size_t index = 0; index < line.size();) {
    if (std::isspace(static_cast<unsigned char>(line[index]))) {
      while (index < line.size() && std::isspace(static_cast<unsigned char>(line[index]))) {
        ++index;
      }
      normalised += "  ";
    } else {
      normalised += line[index++];
    }
  }
  std::vector<std::string> columns;
  std::size_t start = 0;
  for (std::size_t separator; (separator = normalised.find("  ", start)) != std::string::npos;
       start = separator + 2) {
    columns.push_back(normalised.substr(start, separator - start));
  }
  columns.push_back(normalised.substr(start));
  return columns;
}

}  // namespace

QENEndpointPerformanceMetric::QENEndpointPerformanceMetric(
    ConstructionKey key, std::string name, std::shared_ptr<const QENURLRequest> request,
    std::optional<CallStackTrace> callStackTrace)
    : QENPerformanceMetric(key, std::move(name), 1.0, false, true),
      request_(std::move(request)),
      callStackTrace_(std::move(callStackTrace)) {}

std::shared_ptr<QENEndpointPerformanceMetric> QENEndpointPerformanceMetric::initWithRequest(
    std::shared_ptr<const QENURLRequest> request, std::optional<CallStackTrace> callStackTrace,
    const std::shared_ptr<const QENURLSessionTaskMetrics>& metrics) {
  std::string name = metricNameForRequest(request);
  auto metric =
      makeMetric<QENEndpointPerformanceMetric>(std::move(name), request, std::move(callStackTrace));
  metric->setAssociatedURL(request ? request->URL() : nullptr);
  metric->handleMetrics(metrics);
  return metric;
}

void QENEndpointPerformanceMetric::handleMetrics(
    const std::shared_ptr<const QENURLSessionTaskMetrics>& metrics) {
  const std::string className = metrics ? metrics->className : "(null)";
  std::optional<QENDateInterval> interval;
  if (className == "CronetMetrics") {
    const auto& transactions = metrics->transactionMetrics;
    const auto first = transactions.empty() ? nullptr : transactions.front();
    if (first == nullptr || !first->fetchStartDate || !first->responseEndDate) {
      setHasValidMetrics(false, "cronet.fetchStartDate");
      return;
    }
    if (*first->fetchStartDate > *first->responseEndDate) {
      setHasValidMetrics(false, "cronet.endDateNotLater");
      return;
    }
    interval = QENDateInterval{*first->fetchStartDate, *first->responseEndDate};
  } else if (className == "NSURLSessionTaskMetrics" || className == "__NSCFURLSessionTaskMetrics") {
    interval = metrics->taskInterval;
  } else {
    QENAssertionFailure("-[QENEndpointPerformanceMetric handleMetrics:]",
                        "unexpected metric type: %s", className.c_str());
    setHasValidMetrics(false, "unexpected.metric.type");
    return;
  }

  startMetricWithTime(interval->startDate.monotonicTime());
  if (metrics->transactionMetrics.size() != 1 || metrics->transactionMetrics.front() == nullptr) {
    setHasValidMetrics(false, "metrics.count");
    invalidateWithReason(QENPerformanceMetricStopReasonUnknown);
    return;
  }
  const QENURLSessionTaskTransactionMetrics& transaction = *metrics->transactionMetrics.front();
  if (transaction.resourceFetchType != QENURLSessionTaskMetricsResourceFetchTypeNetworkLoad) {
    setHasValidMetrics(false, "resource.fetch.type");
    invalidateWithReason(QENPerformanceMetricStopReasonUnknown);
    return;
  }
  setHasValidMetrics(true, std::nullopt);
  annotateTransaction(transaction);
  stopMetricWithTime(interval->endDate.monotonicTime());
}

void QENEndpointPerformanceMetric::annotateTransaction(
    const QENURLSessionTaskTransactionMetrics& transaction) {
  const auto* response = transaction.response ? transaction.response->asHTTPURLResponse() : nullptr;
  addBinaryAnnotation(
      Vocabulary::annotationWithKeyBoolean("conn_reused", transaction.isReusedConnection));
  for (std::size_t index = 0; index < kPhaseNames.size(); ++index) {
    const auto& phase = QENNetworkMetrics::kConnectionPhases[index];
    addNetworkSubspanWithName(kPhaseNames[index], transaction.*phase.start, transaction.*phase.end);
  }
  addBinaryAnnotation(Vocabulary::annotationWithKeyString(
      Keys::ENDPOINT_ID(), QENNetworkMetrics::absoluteEndpointId(transaction)));
  addBinaryAnnotation(Vocabulary::annotationWithKeyInt64(Keys::NETWORK_RESPONSE_STATUS(),
                                                         response ? response->statusCode() : 0));

  // Bytes actually received (headers included); the announced length only when none were.
  std::int64_t size = QENNetworkMetrics::bytesReceived(transaction);
  if (size == 0 && transaction.response) {
    size = transaction.response->expectedContentLength();
  }
  if (size >= 1) {
    addBinaryAnnotation(Vocabulary::annotationWithKeyInt64(Keys::NETWORK_EXPECTED_SIZE(), size));
    const std::int32_t kilobitsPerSecond = QENNetworkMetrics::kilobitsPerSec(transaction);
    if (kilobitsPerSecond >= 1) {
      addBinaryAnnotation(
          Vocabulary::annotationWithKeyInt32(ClientKeys::NETWORK_SPEED(), kilobitsPerSecond));
      QENNotificationCenter::defaultCenter().postNotificationName(
          QENPerformanceMetricResourceDownloadNetworkSpeedNotification, nullptr,
          {{std::string(ClientKeys::NETWORK_SPEED()), kilobitsPerSecond}});
    }
  }
  addBinaryAnnotation(Vocabulary::annotationWithKeyInt16(
      Keys::IP_VERSION(),
      static_cast<std::int16_t>(QENNetworkMetrics::localAddressIPVersion(transaction))));
  if (response) {
    addBinaryAnnotations(QENNetworkMetrics::cdnAnnotations(
        [response](std::string_view name) { return response->valueForHTTPHeaderField(name); }));
  }
  const auto measuredRequest = request();
  const std::optional<std::string> method =
      measuredRequest ? measuredRequest->HTTPMethod() : std::nullopt;
  addBinaryAnnotation(
      Vocabulary::annotationWithKeyString(ClientKeys::HTTP_METHOD(), method.value_or("")));
  addBinaryAnnotations(QENNetworkMetrics::getAllConnectionMetrics(transaction));
}

void QENEndpointPerformanceMetric::setHasValidMetrics(
    bool valid, std::optional<std::string_view> invalidReason) {
  addBinaryAnnotation(Vocabulary::annotationWithKeyBoolean("has_valid_metrics", valid));
  if (!valid) {
    addBinaryAnnotation(Vocabulary::annotationWithKeyString("invalid_metrics_reason",
                                                            invalidReason.value_or("unspecified")));
  }
}

void QENEndpointPerformanceMetric::addNetworkSubspanWithName(
    std::string_view name, const std::optional<QENDate>& startDate,
    const std::optional<QENDate>& endDate) {
  if (!endDate) {
    return;
  }
  const double start = startDate ? startDate->monotonicTime() : 0.0;
  const double end = endDate->monotonicTime();
  QENAssert(!(end < start),
            "-[QENEndpointPerformanceMetric addNetworkSubspanWithName:startDate:endDate:]",
            "Metric stop time %f must be greater than or equal to start time %f", end, start);
  // An absent start reads as 0.0, which is no time of this phase: read as a start, it would make a
  // span from the machine's boot. A zero-length phase is dropped as well, although the check
  // above accepts it.
  const bool startIsTime = startDate && QENIsValidMonotonicTime(start);
  if (!startIsTime || !QENIsValidMonotonicTime(end) || !(start < end)) {
    return;
  }
  const std::string phaseName(name);
  addAnnotation(AnnotationQENAdditions::annotationWithName(phaseName + "_start", start));
  addAnnotation(AnnotationQENAdditions::annotationWithName(phaseName + "_end", end));
  const auto phase = QENPerformanceMetric::initLeafMetricWithName(phaseName);
  phase->startMetricWithTime(start);
  phase->stopMetricWithTime(end);
  addChildMetric(phase);
}

std::string QENEndpointPerformanceMetric::serializeStackTrace(
    const CallStackTrace& callStackTrace) {
  const std::optional<std::string> appName =
      QENBundle::mainBundle()->objectForInfoDictionaryKey("CFBundleName");
  std::vector<std::string> frames;
  frames.reserve(callStackTrace.size());
  for (const std::string& line : callStackTrace) {
    const std::vector<std::string> columns = frameColumns(line);
    if (columns.size() < 5 || !appName || columns[1] != *appName) {
      continue;
    }
    const auto frameNumber = static_cast<int>(std::clamp<std::int64_t>(
        QENLeadingInt64(columns[0]), std::numeric_limits<std::int32_t>::min(),
        std::numeric_limits<std::int32_t>::max()));
    char number[16];
    std::snprintf(number, sizeof number, "%02d", frameNumber);
    frames.push_back(std::string(number) + " " + columns[1] + " " + columns[3] + " " + columns[4]);
  }
  return QENJSONSerialization::prettyPrintedObject({{"trace", frames}})
      .value_or("Serialization Failed");
}

std::shared_ptr<const QENURL> QENEndpointPerformanceMetric::urlHeaderSentTo() const {
  const auto measuredRequest = request();
  return measuredRequest ? measuredRequest->URL() : nullptr;
}

std::shared_ptr<const QENURLRequest> QENEndpointPerformanceMetric::request() const {
  const QENLockGuard guard(propertyLock());
  return request_;
}

void QENEndpointPerformanceMetric::setRequest(std::shared_ptr<const QENURLRequest> request) {
  const QENLockGuard guard(propertyLock());
  request_.swap(request);
}

std::optional<QENEndpointPerformanceMetric::CallStackTrace>
QENEndpointPerformanceMetric::callStackTrace() const {
  const QENLockGuard guard(propertyLock());
  return callStackTrace_;
}

void QENEndpointPerformanceMetric::setCallStackTrace(std::optional<CallStackTrace> callStackTrace) {
  const QENLockGuard guard(propertyLock());
  callStackTrace_.swap(callStackTrace);
}
