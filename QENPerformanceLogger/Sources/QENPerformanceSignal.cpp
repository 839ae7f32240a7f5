#include "QENPerformanceSignal.h"

#include "QENFoundation/QENMonotonicTime.h"
#include "QENFoundation/QENNetworkEndianHexString.h"
#include "QENFoundation/QENRandom.h"
#include "QENNumericConversion.h"
#include "QENZipkinHTTPHeaders.h"

namespace {

std::int64_t randomIdentifier() {
  std::int64_t identifier = 0;
  QENFoundation::arc4random_buf(&identifier, sizeof identifier);
  return identifier;
}

}  // namespace

QENPerformanceSignal::QENPerformanceSignal(std::shared_ptr<const QENURL> videoUrl,
                                           std::int64_t traceId, bool isCachedAsset,
                                           bool enableCdnLogging)
    : isCachedAsset_(isCachedAsset),
      enableCdnLogging_(enableCdnLogging),
      videoUrl_(std::move(videoUrl)),
      traceId_(traceId),
      spanId_(randomIdentifier()),
      cdnSpanId_(randomIdentifier()),
      startTime_(QENMonotonicTimeGetCurrent()) {}

std::shared_ptr<QENPerformanceSignal> QENPerformanceSignal::initWithVideoUrl(
    std::shared_ptr<const QENURL> videoUrl, std::int64_t traceId, bool isCachedAsset,
    bool enableCdnLogging) {
  return std::make_shared<QENPerformanceSignal>(std::move(videoUrl), traceId, isCachedAsset,
                                                enableCdnLogging);
}

std::shared_ptr<QENPerformanceSignal> QENPerformanceSignal::initWithVideoUrl(
    std::shared_ptr<const QENURL> videoUrl, bool isCachedAsset, bool enableCdnLogging) {
  return initWithVideoUrl(std::move(videoUrl), randomIdentifier(), isCachedAsset, enableCdnLogging);
}

std::shared_ptr<QENPerformanceSignal> QENPerformanceSignal::initWithVideoUrlForTest(
    std::shared_ptr<const QENURL> videoUrl, std::optional<std::string> playbackSessionId) {
  auto signal = initWithVideoUrl(std::move(videoUrl), false, false);
  signal->playbackSessionId_ = std::move(playbackSessionId);
  const double now = QENMonotonicTimeGetCurrent();
  signal->setStartTime(now);
  signal->setStopTime(now);
  return signal;
}

void QENPerformanceSignal::setIsReadyToPlay(bool readyToPlay) {
  isReadyToPlay_ = readyToPlay;
  setStopTime(QENMonotonicTimeGetCurrent());
}

void QENPerformanceSignal::setIsPreloadFailed(bool failed) {
  isPreloadFailed_ = failed;
  setStopTime(QENMonotonicTimeGetCurrent());
}

void QENPerformanceSignal::setIsCancelled(bool cancelled) {
  isCancelled_ = cancelled;
  setStopTime(QENMonotonicTimeGetCurrent());
}

double QENPerformanceSignal::getPreloadDuration() const {
  const std::int64_t microseconds = QENRoundToInt64((stopTime() - startTime()) * 1000000.0);
  return static_cast<double>(microseconds) / 1000000.0;
}

QENPerformanceSignal::HeaderFields QENPerformanceSignal::getHeaderFields() const {
  using QENFoundation::qen_networkEndianHexString;
  HeaderFields headers = {
      {std::string(kZipkinHTTPHeaderTraceId), qen_networkEndianHexString(traceId_)},
      {std::string(kZipkinHTTPHeaderParentSpanId), qen_networkEndianHexString(spanId_)},
      {std::string(kZipkinHTTPHeaderSpanId), qen_networkEndianHexString(cdnSpanId_)},
  };
  if (enableCdnLogging_) {
    headers.emplace(kZipkinHTTPHeaderDebugKey, kZipkinHTTPHeaderDebugValue);
  }
  return headers;
}
