#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "QENFoundation/QENAtomicReference.h"
#include "QENFoundation/QENLock.h"
#include "QENFoundation/QENThreadSafetyAnnotations.h"
#include "QENImageDownloadPerformanceMetric.h"
#include "QENURLLoading/QENURLSessionTaskMetrics.h"

// Names of the image network spans.
inline constexpr std::string_view QEMetricNameImageDNS = "image_network_dns";
inline constexpr std::string_view QEMetricNameImageConn = "image_network_conn";
inline constexpr std::string_view QEMetricNameImageTLS = "image_network_tls";
inline constexpr std::string_view QEMetricNameImageRequest = "image_network_request";
inline constexpr std::string_view QEMetricNameImageResponse = "image_network_response";
inline constexpr std::string_view QEMetricNameImageTotal = "image_network_total";
// For the host; the library does not use it.
inline constexpr std::string_view QEMetricNameGridImagePlaceholder = "grid_img_place_holder";
// Posted with the averaged speed (user info: NETWORK_SPEED key -> int32 kilobits per second).
inline constexpr std::string_view QENPerformanceMetricImageDownloadNetworkSpeedNotification =
    "QENPerformanceMetricImageDownloadNetworkSpeedNotification";

// Joins image metrics to the task metrics of their requests. Every image metric registers at
// construction; when the host gets the task metrics of an image request it calls
// processMetrics, which takes the waiting metric for that URL out of the registry and attaches
// an "image_network_total" span with a child per connection phase of every transaction, the
// mean size and speed of the transactions that had both, the IP version, and the first
// transaction's timings, reuse and endpoint id.
//
// A registered metric is kept alive until its task metrics arrive: there is no expiry. A host
// must therefore deliver task metrics for every image request it measures, or the metrics of
// the others stay in memory for the life of the process.
//
// On the image CDN (imageCDNHostDomain, a substring of the host), URLs match by path whatever
// the CDN host and query; elsewhere only equal URLs match.
class QENImageDownloadPerformanceMetricManager {
 public:
  using MetricPointer = std::shared_ptr<QENImageDownloadPerformanceMetric>;

  static QENImageDownloadPerformanceMetricManager& sharedMetricManager();
  // With the shared manager.
  static MetricPointer processMetrics(
      const std::shared_ptr<const QENURLSessionTaskMetrics>& metrics,
      const std::shared_ptr<const QENURL>& url);
  // Appends a leaf for a phase with both dates and a positive length; a phase ending before it
  // starts is reported and dropped.
  static void addNetworkSubspanToArray(std::vector<std::shared_ptr<QENPerformanceMetric>>& phases,
                                       std::string_view name,
                                       const std::optional<QENDate>& startDate,
                                       const std::optional<QENDate>& endDate);

  // The image CDN's host domain; "qenimg.com" until the host sets its own at start-up.
  static std::string imageCDNHostDomain();
  static void setImageCDNHostDomain(std::string domain);

  QENImageDownloadPerformanceMetricManager();

  // Registers a metric with the shared manager: the class-level operation, which every image
  // metric calls at construction.
  static void monitorForSessionMetrics(const MetricPointer& metric);
  // Registers a metric with this manager (once, however often it is given); an absent one is
  // reported. C++ cannot give a static and an instance member one name and one parameter list,
  // so the instance form says so in its name.
  void instanceMonitorForSessionMetrics(const MetricPointer& metric);
  MetricPointer removeMetricForProcessingWithURL(const std::shared_ptr<const QENURL>& url);
  // A snapshot of the metrics still waiting, and its replacement (each a metric once however
  // often it is listed; an absent one is reported and left out).
  std::vector<MetricPointer> monitoredMetrics() const;
  void setMonitoredMetrics(const std::vector<MetricPointer>& metrics);

  // The lock that guards the waiting metrics, for a host that shares it with code of its own. A
  // replacement may be set at any time: an operation that waited on the lock it replaced takes the
  // new one before it touches the metrics. An absent lock is reported and ignored.
  std::shared_ptr<QENLock> lock() const;
  void setLock(std::shared_ptr<QENLock> lock);

 private:
  // What holding the current lock grants, for the thread-safety analysis: the lock itself is
  // only known when the program runs.
  struct QEN_CAPABILITY("mutex") MetricsAccess {};
  class CurrentLockGuard;

  QENAtomicReference<std::shared_ptr<QENLock>> lock_;
  mutable MetricsAccess metricsAccess_;
  std::unordered_set<MetricPointer> monitoredMetrics_ QEN_GUARDED_BY(metricsAccess_);
};
