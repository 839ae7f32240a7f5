#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "QENPerformanceMetric.h"
#include "QENPerformanceSendsTraceInHeader.h"
#include "QENURLLoading/QENURLRequest.h"
#include "QENURLLoading/QENURLSessionTaskMetrics.h"

// Posted with the measured speed (user info: NETWORK_SPEED key -> int32 kilobits per second)
// when an endpoint metric knows it.
inline constexpr std::string_view QENPerformanceMetricResourceDownloadNetworkSpeedNotification =
    "QENPerformanceMetricResourceDownloadNetworkSpeedNotification";

// One finished network request, measured from the task metrics the URL-loading system
// delivered for it. The constructor does all the work: it names the metric "resource_<path>",
// accepts exactly one real network transaction, starts and stops the metric at the task's own
// dates, adds a child span per connection phase (dns, conn, tls, req, resp) and annotates
// status, size, speed, IP version, CDN headers, HTTP method and the fifteen timing values.
//
// Rejected metrics say why in "invalid_metrics_reason": an unknown kind of metrics object or an
// incomplete Cronet record leaves the metric unstarted; a task with other than one transaction
// (a redirect) or one not loaded from the network is started and invalidated (Unknown).
class QENEndpointPerformanceMetric : public QENPerformanceMetric,
                                     public QENPerformanceSendsTraceInHeader {
 public:
  using CallStackTrace = std::vector<std::string>;

  static std::shared_ptr<QENEndpointPerformanceMetric> initWithRequest(
      std::shared_ptr<const QENURLRequest> request, std::optional<CallStackTrace> callStackTrace,
      const std::shared_ptr<const QENURLSessionTaskMetrics>& metrics);
  // The inherited factories would make a plain QENPerformanceMetric: through this class they do
  // not compile.
  template <class... Arguments>
  static void initWithName(Arguments&&...) = delete;
  template <class... Arguments>
  static void initLeafMetricWithName(Arguments&&...) = delete;
  template <class... Arguments>
  static void createWithName(Arguments&&...) = delete;

  QENEndpointPerformanceMetric(ConstructionKey key, std::string name,
                               std::shared_ptr<const QENURLRequest> request,
                               std::optional<CallStackTrace> callStackTrace);

  void handleMetrics(const std::shared_ptr<const QENURLSessionTaskMetrics>& metrics);
  void setHasValidMetrics(bool valid, std::optional<std::string_view> invalidReason);
  // A child span and "<name>_start"/"<name>_end" annotations for a phase that has an end date,
  // valid times and a positive length; a phase ending before it starts is reported and skipped.
  void addNetworkSubspanWithName(std::string_view name, const std::optional<QENDate>& startDate,
                                 const std::optional<QENDate>& endDate);

  // The frames of the app's own image (main bundle "CFBundleName") as pretty-printed JSON
  // {"trace": ["00 MyApp -[FeedLoader load]", ...]}; "Serialization Failed" if it cannot be
  // written. For the host; the library never calls it.
  static std::string serializeStackTrace(const CallStackTrace& callStackTrace);

  std::shared_ptr<const QENURL> urlHeaderSentTo() const override;

  std::shared_ptr<const QENURLRequest> request() const;
  void setRequest(std::shared_ptr<const QENURLRequest> request);
  std::optional<CallStackTrace> callStackTrace() const;
  void setCallStackTrace(std::optional<CallStackTrace> callStackTrace);

 private:
  void annotateTransaction(const QENURLSessionTaskTransactionMetrics& transaction);

  std::shared_ptr<const QENURLRequest> request_ QEN_GUARDED_BY(propertyLock());
  std::optional<CallStackTrace> callStackTrace_ QEN_GUARDED_BY(propertyLock());
};
