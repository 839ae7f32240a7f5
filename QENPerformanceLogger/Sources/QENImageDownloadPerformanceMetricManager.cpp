#include "QENImageDownloadPerformanceMetricManager.h"

#include <algorithm>
#include <array>
#include <mutex>

#include "BinaryAnnotation+QENAdditions.h"
#include "QENAssert.h"
#include "QENFoundation/QENNotificationCenter.h"
#include "QENNumericConversion.h"
#include "QENThrift/tracing_clientConstants.h"
#include "QENURLSessionTaskTransactionMetrics+NetworkMetrics.h"
#include "performance_tracing_clientConstants.h"

namespace {

using Vocabulary = QENThrift::BinaryAnnotationQENAdditions;
using Transaction = QENURLSessionTaskTransactionMetrics;
using Keys = performance_tracing_clientConstants;
using ClientKeys = QENThrift::tracing_clientConstants;

struct CDNSetting {
  std::mutex mutex;
  std::string hostDomain = "qenimg.com";
};

CDNSetting& cdnSetting() {
  static auto* const setting = new CDNSetting();
  return *setting;
}

// Child span names, one per connection phase of QENNetworkMetrics::kConnectionPhases.
constexpr std::array<std::string_view, 5> kPhaseNames = {
    QEMetricNameImageDNS, QEMetricNameImageConn, QEMetricNameImageTLS, QEMetricNameImageRequest,
    QEMetricNameImageResponse};

bool matches(const QENURL& imageURL, const QENURL& url, const std::string& cdnDomain) {
  const bool onCDN = !cdnDomain.empty() && url.host().find(cdnDomain) != std::string::npos &&
                     imageURL.host().find(cdnDomain) != std::string::npos;
  return (onCDN && imageURL.relativePath() == url.relativePath()) || imageURL == url;
}

// What the transactions of one task add up to.
struct TransactionSummary {
  std::vector<std::shared_ptr<QENPerformanceMetric>> phases;
  std::optional<QENDate> earliest;
  std::optional<QENDate> latest;
  std::int64_t totalBytes = 0;
  std::int64_t totalKilobitsPerSecond = 0;
  std::int64_t counted = 0;
  std::int64_t ipVersion = 0;
};

TransactionSummary summarise(const std::vector<std::shared_ptr<const Transaction>>& transactions) {
  TransactionSummary summary;
  QENDate earliest = QENDate::distantFuture();
  QENDate latest = QENDate::distantPast();
  for (const auto& transaction : transactions) {
    if (transaction == nullptr) {
      continue;  // absorbed, as the endpoint metric does
    }
    for (std::size_t index = 0; index < kPhaseNames.size(); ++index) {
      const auto& phase = QENNetworkMetrics::kConnectionPhases[index];
      QENImageDownloadPerformanceMetricManager::addNetworkSubspanToArray(
          summary.phases, kPhaseNames[index], (*transaction).*phase.start,
          (*transaction).*phase.end);
    }
    const std::int32_t kilobitsPerSecond = QENNetworkMetrics::kilobitsPerSec(*transaction);
    const std::int64_t bytes = QENNetworkMetrics::bytesReceived(*transaction);
    if (kilobitsPerSecond >= 1 && bytes >= 1) {
      // Host-supplied counts: the sums wrap, as a transaction's own byte count does.
      summary.totalBytes = QENWrappingSum(summary.totalBytes, bytes);
      summary.totalKilobitsPerSecond =
          QENWrappingSum(summary.totalKilobitsPerSecond, kilobitsPerSecond);
      ++summary.counted;
    }
    // A missing date leaves the running value as it is.
    if (transaction->requestStartDate) {
      earliest = earliest.earlierDate(*transaction->requestStartDate);
    }
    if (transaction->responseEndDate) {
      latest = latest.laterDate(*transaction->responseEndDate);
    }
    if (summary.ipVersion == 0) {
      summary.ipVersion = QENNetworkMetrics::localAddressIPVersion(*transaction);
    }
  }
  if (earliest != QENDate::distantFuture() && latest != QENDate::distantPast()) {
    summary.earliest = earliest;
    summary.latest = latest;
  }
  return summary;
}

}  // namespace

QENImageDownloadPerformanceMetricManager::QENImageDownloadPerformanceMetricManager()
    : lock_(std::make_shared<QENLock>("QENImageDownloadPerformanceMetricManager lock")) {}

// Holds the manager's current lock: one replaced while this waited on it is let go, and the new
// one taken, so that only the holder of the current lock touches the metrics.
class QEN_SCOPED_CAPABILITY QENImageDownloadPerformanceMetricManager::CurrentLockGuard {
 public:
  explicit CurrentLockGuard(const QENImageDownloadPerformanceMetricManager& manager)
      QEN_ACQUIRE(manager.metricsAccess_) QEN_NO_THREAD_SAFETY_ANALYSIS {
    for (;;) {
      held_ = manager.lock_.load();
      held_->lock();
      if (manager.lock_.load() == held_) {
        return;
      }
      held_->unlock();
    }
  }
  ~CurrentLockGuard() QEN_RELEASE() QEN_NO_THREAD_SAFETY_ANALYSIS { held_->unlock(); }
  CurrentLockGuard(const CurrentLockGuard&) = delete;
  CurrentLockGuard& operator=(const CurrentLockGuard&) = delete;

 private:
  std::shared_ptr<QENLock> held_;
};

std::shared_ptr<QENLock> QENImageDownloadPerformanceMetricManager::lock() const {
  return lock_.load();
}

void QENImageDownloadPerformanceMetricManager::setLock(std::shared_ptr<QENLock> lock) {
  if (lock == nullptr) {
    QENAssertionFailure("-[QENImageDownloadPerformanceMetricManager setLock:]",
                        "The lock should not be nil");
    return;
  }
  const CurrentLockGuard guard(*this);
  lock_.store(std::move(lock));
}

QENImageDownloadPerformanceMetricManager&
QENImageDownloadPerformanceMetricManager::sharedMetricManager() {
  static auto* const manager = new QENImageDownloadPerformanceMetricManager();
  return *manager;
}

std::string QENImageDownloadPerformanceMetricManager::imageCDNHostDomain() {
  const std::lock_guard guard(cdnSetting().mutex);
  return cdnSetting().hostDomain;
}

void QENImageDownloadPerformanceMetricManager::setImageCDNHostDomain(std::string domain) {
  const std::lock_guard guard(cdnSetting().mutex);
  cdnSetting().hostDomain = std::move(domain);
}

void QENImageDownloadPerformanceMetricManager::monitorForSessionMetrics(
    const MetricPointer& metric) {
  sharedMetricManager().instanceMonitorForSessionMetrics(metric);
}

void QENImageDownloadPerformanceMetricManager::instanceMonitorForSessionMetrics(
    const MetricPointer& metric) {
  if (metric == nullptr) {
    QENAssertionFailure("-[QENImageDownloadPerformanceMetricManager monitorForSessionMetrics:]",
                        "Metric should not be nil unless disabled");
    return;
  }
  const CurrentLockGuard guard(*this);
  monitoredMetrics_.insert(metric);
}

QENImageDownloadPerformanceMetricManager::MetricPointer
QENImageDownloadPerformanceMetricManager::removeMetricForProcessingWithURL(
    const std::shared_ptr<const QENURL>& url) {
  if (url == nullptr) {
    return nullptr;
  }
  const std::string cdnDomain = imageCDNHostDomain();
  const CurrentLockGuard guard(*this);
  for (auto candidate = monitoredMetrics_.begin(); candidate != monitoredMetrics_.end();
       ++candidate) {
    const auto imageURL = (*candidate)->associatedURL();
    if (imageURL != nullptr && matches(*imageURL, *url, cdnDomain)) {
      MetricPointer matched = *candidate;
      monitoredMetrics_.erase(candidate);
      return matched;
    }
  }
  return nullptr;
}

std::vector<QENImageDownloadPerformanceMetricManager::MetricPointer>
QENImageDownloadPerformanceMetricManager::monitoredMetrics() const {
  const CurrentLockGuard guard(*this);
  return {monitoredMetrics_.begin(), monitoredMetrics_.end()};
}

void QENImageDownloadPerformanceMetricManager::setMonitoredMetrics(
    const std::vector<MetricPointer>& metrics) {
  std::unordered_set<MetricPointer> replacement;
  for (const MetricPointer& metric : metrics) {
    if (metric == nullptr) {
      QENAssertionFailure("-[QENImageDownloadPerformanceMetricManager setMonitoredMetrics:]",
                          "A monitored metric should not be nil");
      continue;
    }
    replacement.insert(metric);
  }
  const CurrentLockGuard guard(*this);
  monitoredMetrics_.swap(replacement);
}

QENImageDownloadPerformanceMetricManager::MetricPointer
QENImageDownloadPerformanceMetricManager::processMetrics(
    const std::shared_ptr<const QENURLSessionTaskMetrics>& metrics,
    const std::shared_ptr<const QENURL>& url) {
  const MetricPointer metric = sharedMetricManager().removeMetricForProcessingWithURL(url);
  if (metric == nullptr || metrics == nullptr) {
    return metric;
  }
  const auto& transactions = metrics->transactionMetrics;
  const TransactionSummary summary = summarise(transactions);
  if (summary.earliest) {
    const auto total = QENPerformanceMetric::initLeafMetricWithName(
        std::string(QEMetricNameImageTotal), summary.earliest->monotonicTime(),
        summary.latest->monotonicTime());
    for (const auto& phase : summary.phases) {
      total->addChildMetric(phase);
    }
    metric->addChildMetric(total);
  }
  if (summary.counted > 0) {
    const std::int64_t meanKilobitsPerSecond = summary.totalKilobitsPerSecond / summary.counted;
    metric->addBinaryAnnotation(Vocabulary::annotationWithKeyInt64(
        Keys::NETWORK_EXPECTED_SIZE(), summary.totalBytes / summary.counted));
    metric->addBinaryAnnotation(Vocabulary::annotationWithKeyInt32(
        ClientKeys::NETWORK_SPEED(), static_cast<std::int32_t>(meanKilobitsPerSecond)));
    QENNotificationCenter::defaultCenter().postNotificationName(
        QENPerformanceMetricImageDownloadNetworkSpeedNotification, nullptr,
        {{std::string(ClientKeys::NETWORK_SPEED()),
          static_cast<std::int32_t>(meanKilobitsPerSecond)}});
  }
  if (summary.ipVersion != 0) {
    metric->addBinaryAnnotation(Vocabulary::annotationWithKeyInt16(
        Keys::IP_VERSION(), static_cast<std::int16_t>(summary.ipVersion)));
  }
  const auto first = std::find_if(transactions.begin(), transactions.end(),
                                  [](const auto& transaction) { return transaction != nullptr; });
  if (first != transactions.end()) {
    metric->addBinaryAnnotations(QENNetworkMetrics::getAllConnectionMetrics(**first));
    metric->addBinaryAnnotation(
        Vocabulary::annotationWithKeyBoolean("conn_reused", (*first)->isReusedConnection));
    metric->addBinaryAnnotation(Vocabulary::annotationWithKeyString(
        Keys::ENDPOINT_ID(), QENNetworkMetrics::absoluteEndpointId(**first)));
  }
  return metric;
}

void QENImageDownloadPerformanceMetricManager::addNetworkSubspanToArray(
    std::vector<std::shared_ptr<QENPerformanceMetric>>& phases, std::string_view name,
    const std::optional<QENDate>& startDate, const std::optional<QENDate>& endDate) {
  if (!startDate || !endDate) {
    return;
  }
  const double start = startDate->monotonicTime();
  const double end = endDate->monotonicTime();
  QENAssert(!(end < start),
            "+[QENImageDownloadPerformanceMetricManager "
            "addNetworkSubspanToArray:name:startDate:endDate:]",
            "Metric stop time %f must be greater than or equal to start time %f", end, start);
  if (!(start < end)) {
    return;
  }
  const auto phase = QENPerformanceMetric::initLeafMetricWithName(std::string(name));
  phase->startMetricWithTime(start);
  phase->stopMetricWithTime(end);
  phases.push_back(phase);
}
