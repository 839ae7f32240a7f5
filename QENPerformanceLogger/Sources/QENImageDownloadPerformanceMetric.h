#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "QENImagePerformanceDelegate.h"
#include "QENPerformanceMetric.h"
#include "QENPerformanceSendsTraceInHeader.h"

// The loading and display of one image, fed by its image view's callbacks: children for the
// cache lookup, the network load, a failure and the display, and annotations for the data
// source, status and CDN headers. It registers with the shared
// QENImageDownloadPerformanceMetricManager at construction, which keeps it alive until the
// task metrics of its URL arrive and attaches the network detail to it. The host starts and
// stops it itself.
//
// Host-side callbacks for one image are expected from one thread at a time; the fields are
// safe to read from others.
class QENImageDownloadPerformanceMetric : public QENPerformanceMetric,
                                          public QENPerformanceSendsTraceInHeader,
                                          public QENImagePerformanceDelegate {
 public:
  // Null for an absent URL (nothing is registered then). Sets the start reason to 4, the
  // associated URL, and a "Url" annotation.
  static std::shared_ptr<QENImageDownloadPerformanceMetric> initWithName(
      std::string name, double uploadFraction, const std::shared_ptr<const QENURL>& imageURL,
      bool dynamicallyManageMetricHierarchy);
  // The inherited factories would make a plain QENPerformanceMetric without an image URL: through
  // this class they do not compile.
  template <class... Arguments>
  static void initLeafMetricWithName(Arguments&&...) = delete;
  template <class... Arguments>
  static void createWithName(Arguments&&...) = delete;

  QENImageDownloadPerformanceMetric(ConstructionKey key, std::string name, double uploadFraction,
                                    std::shared_ptr<const QENURL> imageURL,
                                    bool dynamicallyManageMetricHierarchy);

  void imageNodeDidStartFetchingDataWithStartTime(double startTime) override;
  void imageNodeDidLoadImage(const std::any& image, const std::shared_ptr<const QENURL>& imageUrl,
                             std::int16_t dataSource, const ResponseHeaders& responseHeaders,
                             std::int64_t responseStatusCode, double endTime) override;
  void imageNodeWithUrl(const std::shared_ptr<const QENURL>& url, const std::string& error,
                        double endTime) override;
  void imageNodeWillStartDisplayAsynchronously(double startTime) override;
  void imageNodeDidFinishDecodingWithEndTime(double endTime) override;
  void imageNodeWillLoadImageFromCacheWithStartTime(double startTime) override;
  void imageNodeDidLoadImageFromCacheWithEndTime(double endTime) override;
  void imageNodeDidFailToLoadImageFromCacheWithEndTime(double endTime) override;
  void imageNodeWillLoadImageFromNetworkWithStartTime(double startTime) override;

  // Stops the cache child at `endTime` and marks it "load_image_cache" = success, unless it is
  // absent, finished, or started after `endTime`.
  void stopLoadImageFromCacheMetric(double endTime, bool success);
  // True exactly for the host's navigation and dismissal event types that end an image's wait.
  bool shouldInvalidate(const EventPointer& event) const override;
  std::shared_ptr<const QENURL> urlHeaderSentTo() const override { return imageURL_; }

  const std::shared_ptr<const QENURL>& imageURL() const { return imageURL_; }
  // Both start at 0.0 (not the unset -1.0): a callback using one never set uses 0.0.
  double displayStartTime() const { return displayStartTime_.load(std::memory_order_relaxed); }
  void setDisplayStartTime(double time) {
    displayStartTime_.store(time, std::memory_order_relaxed);
  }
  double loadStartTime() const { return loadStartTime_.load(std::memory_order_relaxed); }
  void setLoadStartTime(double time) { loadStartTime_.store(time, std::memory_order_relaxed); }
  std::shared_ptr<QENPerformanceMetric> loadImageFromCacheMetric() const;
  void setLoadImageFromCacheMetric(std::shared_ptr<QENPerformanceMetric> metric);
  std::shared_ptr<QENPerformanceMetric> loadImageFromNetworkMetric() const;
  void setLoadImageFromNetworkMetric(std::shared_ptr<QENPerformanceMetric> metric);

 private:
  // Makes, starts and adopts the child in `slot` unless it exists.
  // One of the two child fields below, filled under the lock.
  using ChildSlot = std::shared_ptr<QENPerformanceMetric> QENImageDownloadPerformanceMetric::*;
  void startChildOnce(ChildSlot slot, const char* name, double startTime);

  const std::shared_ptr<const QENURL> imageURL_;
  std::atomic<double> displayStartTime_{0.0};
  std::atomic<double> loadStartTime_{0.0};
  std::shared_ptr<QENPerformanceMetric> loadImageFromCacheMetric_ QEN_GUARDED_BY(propertyLock());
  std::shared_ptr<QENPerformanceMetric> loadImageFromNetworkMetric_ QEN_GUARDED_BY(propertyLock());
};
