#include "QENImageDownloadPerformanceMetric.h"

#include <algorithm>
#include <array>
#include <mutex>

#include "BinaryAnnotation+QENAdditions.h"
#include "QENFoundation/QENLockGuard.h"
#include "QENImageDownloadPerformanceMetricManager.h"
#include "QENThrift/tracing_clientConstants.h"
#include "QENURLSessionTaskTransactionMetrics+NetworkMetrics.h"
#include "performance_tracing_clientConstants.h"

namespace {

using Vocabulary = QENThrift::BinaryAnnotationQENAdditions;
using ClientKeys = QENThrift::tracing_clientConstants;

constexpr QENPerformanceMetricStartReason kImageLoadStartReason = 4;
constexpr std::array<std::int32_t, 14> kInvalidatingEventTypes = {
    102, 103, 108, 110, 118, 177, 190, 801, 4701, 6572, 7070, 7071, 8352, 8353};

}  // namespace

QENImageDownloadPerformanceMetric::QENImageDownloadPerformanceMetric(
    ConstructionKey key, std::string name, double uploadFraction,
    std::shared_ptr<const QENURL> imageURL, bool dynamicallyManageMetricHierarchy)
    : QENPerformanceMetric(key, std::move(name), uploadFraction, dynamicallyManageMetricHierarchy,
                           dynamicallyManageMetricHierarchy),
      imageURL_(std::move(imageURL)) {}

std::shared_ptr<QENImageDownloadPerformanceMetric> QENImageDownloadPerformanceMetric::initWithName(
    std::string name, double uploadFraction, const std::shared_ptr<const QENURL>& imageURL,
    bool dynamicallyManageMetricHierarchy) {
  if (imageURL == nullptr) {
    return nullptr;
  }
  auto metric = makeMetric<QENImageDownloadPerformanceMetric>(
      std::move(name), uploadFraction, imageURL, dynamicallyManageMetricHierarchy);
  metric->setMetricCause(kImageLoadStartReason);
  metric->setAssociatedURL(imageURL);
  metric->addBinaryAnnotation(
      Vocabulary::annotationWithKeyString("Url", metric->associatedURL()->absoluteString()));
  QENImageDownloadPerformanceMetricManager::monitorForSessionMetrics(metric);
  return metric;
}

void QENImageDownloadPerformanceMetric::imageNodeDidStartFetchingDataWithStartTime(
    double startTime) {
  setLoadStartTime(startTime);
}

void QENImageDownloadPerformanceMetric::imageNodeWillStartDisplayAsynchronously(double startTime) {
  setDisplayStartTime(startTime);
}

void QENImageDownloadPerformanceMetric::startChildOnce(ChildSlot slot, const char* name,
                                                       double startTime) {
  // Made outside the lock, where its ids are drawn; dropped if another callback won the slot.
  auto child = QENPerformanceMetric::initLeafMetricWithName(name);
  {
    const QENLockGuard guard(propertyLock());
    if (this->*slot != nullptr) {
      return;
    }
    this->*slot = child;
  }
  child->startMetricWithTime(startTime);
  addChildMetric(child);
}

void QENImageDownloadPerformanceMetric::imageNodeWillLoadImageFromCacheWithStartTime(
    double startTime) {
  startChildOnce(&QENImageDownloadPerformanceMetric::loadImageFromCacheMetric_,
                 "load_image_from_cache", startTime);
}

void QENImageDownloadPerformanceMetric::imageNodeWillLoadImageFromNetworkWithStartTime(
    double startTime) {
  startChildOnce(&QENImageDownloadPerformanceMetric::loadImageFromNetworkMetric_,
                 "load_image_from_network", startTime);
}

void QENImageDownloadPerformanceMetric::imageNodeDidLoadImageFromCacheWithEndTime(double endTime) {
  stopLoadImageFromCacheMetric(endTime, true);
}

void QENImageDownloadPerformanceMetric::imageNodeDidFailToLoadImageFromCacheWithEndTime(
    double endTime) {
  stopLoadImageFromCacheMetric(endTime, false);
}

void QENImageDownloadPerformanceMetric::stopLoadImageFromCacheMetric(double endTime, bool success) {
  const auto cacheMetric = loadImageFromCacheMetric();
  if (cacheMetric == nullptr || cacheMetric->isFinished() || cacheMetric->startTime() > endTime) {
    return;
  }
  cacheMetric->stopMetricWithTime(endTime);
  cacheMetric->addBinaryAnnotation(
      Vocabulary::annotationWithKeyBoolean("load_image_cache", success));
}

void QENImageDownloadPerformanceMetric::imageNodeDidLoadImage(
    const std::any&, const std::shared_ptr<const QENURL>&, std::int16_t dataSource,
    const ResponseHeaders& responseHeaders, std::int64_t responseStatusCode, double endTime) {
  if (isFinished()) {
    return;
  }
  const auto networkMetric = loadImageFromNetworkMetric();
  if (networkMetric != nullptr && !networkMetric->isFinished()) {
    networkMetric->stopMetricWithTime(endTime);
  }
  addBinaryAnnotation(Vocabulary::annotationWithKeyInt16(ClientKeys::DATA_SOURCE(), dataSource));
  addBinaryAnnotation(Vocabulary::annotationWithKeyInt64(
      performance_tracing_clientConstants::NETWORK_RESPONSE_STATUS(), responseStatusCode));
  addBinaryAnnotations(QENNetworkMetrics::cdnAnnotations(
      [&responseHeaders](std::string_view name) -> std::optional<std::string> {
        const auto found = responseHeaders.find(name);
        return found == responseHeaders.end() ? std::nullopt : std::optional(found->second);
      }));
}

void QENImageDownloadPerformanceMetric::imageNodeWithUrl(const std::shared_ptr<const QENURL>&,
                                                         const std::string&, double endTime) {
  if (!isFinished()) {
    addChildMetric(QENPerformanceMetric::initLeafMetricWithName("image_load_failed",
                                                                loadStartTime(), endTime));
  }
}

void QENImageDownloadPerformanceMetric::imageNodeDidFinishDecodingWithEndTime(double endTime) {
  addChildMetric(QENPerformanceMetric::initLeafMetricWithName("display_did_finish",
                                                              displayStartTime(), endTime));
}

bool QENImageDownloadPerformanceMetric::shouldInvalidate(const EventPointer& event) const {
  return event != nullptr &&
         std::find(kInvalidatingEventTypes.begin(), kInvalidatingEventTypes.end(),
                   event->eventType()) != kInvalidatingEventTypes.end();
}

std::shared_ptr<QENPerformanceMetric> QENImageDownloadPerformanceMetric::loadImageFromCacheMetric()
    const {
  const QENLockGuard guard(propertyLock());
  return loadImageFromCacheMetric_;
}

void QENImageDownloadPerformanceMetric::setLoadImageFromCacheMetric(
    std::shared_ptr<QENPerformanceMetric> metric) {
  const QENLockGuard guard(propertyLock());
  loadImageFromCacheMetric_.swap(metric);
}

std::shared_ptr<QENPerformanceMetric>
QENImageDownloadPerformanceMetric::loadImageFromNetworkMetric() const {
  const QENLockGuard guard(propertyLock());
  return loadImageFromNetworkMetric_;
}

void QENImageDownloadPerformanceMetric::setLoadImageFromNetworkMetric(
    std::shared_ptr<QENPerformanceMetric> metric) {
  const QENLockGuard guard(propertyLock());
  loadImageFromNetworkMetric_.swap(metric);
}
