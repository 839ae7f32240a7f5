#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "QENFoundation/QENDate.h"
#include "QENURLRequest.h"
#include "QENURLResponse.h"

// How a transaction's resource was fetched.
inline constexpr std::int64_t QENURLSessionTaskMetricsResourceFetchTypeUnknown = 0;
inline constexpr std::int64_t QENURLSessionTaskMetricsResourceFetchTypeNetworkLoad = 1;
inline constexpr std::int64_t QENURLSessionTaskMetricsResourceFetchTypeServerPush = 2;
inline constexpr std::int64_t QENURLSessionTaskMetricsResourceFetchTypeLocalCache = 3;

// One network transaction of a task, as the URL-loading system reports it: a plain record that
// a host fills from its own networking stack. Every date is optional (absent when the stack did
// not record that phase).
struct QENURLSessionTaskTransactionMetrics {
  std::shared_ptr<const QENURLRequest> request;
  std::shared_ptr<const QENURLResponse> response;
  std::optional<QENDate> fetchStartDate;
  std::optional<QENDate> domainLookupStartDate;
  std::optional<QENDate> domainLookupEndDate;
  std::optional<QENDate> connectStartDate;
  std::optional<QENDate> secureConnectionStartDate;
  std::optional<QENDate> secureConnectionEndDate;
  std::optional<QENDate> connectEndDate;
  std::optional<QENDate> requestStartDate;
  std::optional<QENDate> requestEndDate;
  std::optional<QENDate> responseStartDate;
  std::optional<QENDate> responseEndDate;
  std::int64_t countOfResponseHeaderBytesReceived = 0;
  std::int64_t countOfResponseBodyBytesReceived = 0;
  std::optional<std::string> localAddress;
  std::int64_t resourceFetchType = QENURLSessionTaskMetricsResourceFetchTypeUnknown;
  bool isReusedConnection = false;
};
