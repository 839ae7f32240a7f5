#pragma once

#include <any>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "QENURLLoading/QENURL.h"

// The progress callbacks of an image view, forwarded by the host. Every operation is optional
// (an empty default); every time is in monotonic seconds.
class QENImagePerformanceDelegate {
 public:
  using ResponseHeaders = std::map<std::string, std::string, std::less<>>;

  virtual ~QENImagePerformanceDelegate() = default;
  virtual void imageNodeDidStartFetchingDataWithStartTime(double) {}
  virtual void imageNodeDidLoadImage(const std::any& /*image*/,
                                     const std::shared_ptr<const QENURL>& /*imageUrl*/,
                                     std::int16_t /*dataSource*/,
                                     const ResponseHeaders& /*responseHeaders*/,
                                     std::int64_t /*responseStatusCode*/, double /*endTime*/) {}
  virtual void imageNodeWithUrl(const std::shared_ptr<const QENURL>& /*url*/,
                                const std::string& /*didFailWithError*/, double /*endTime*/) {}
  virtual void imageNodeWillStartDisplayAsynchronously(double) {}
  virtual void imageNodeDidFinishDecodingWithEndTime(double) {}
  virtual void imageNodeWillLoadImageFromCacheWithStartTime(double) {}
  virtual void imageNodeDidLoadImageFromCacheWithEndTime(double) {}
  virtual void imageNodeDidFailToLoadImageFromCacheWithEndTime(double) {}
  virtual void imageNodeWillLoadImageFromNetworkWithStartTime(double) {}
};
