#pragma once

#include <chrono>
#include <ctime>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "QENCollectorTransport.h"

// Posts to a collector's URL over HTTP with libcurl. Each attempt is limited by requestTimeout
// and by the deadline, whichever comes first: a deadline brought forward cuts the transfer at
// once (wake), so that a reporter's shutdown never waits on a slow collector, nor on a host name
// still resolving (libcurl's resolver thread is left to finish the lookup on its own). A URL that
// redirects is a configuration error: its batches are refused, and the developer log says so.
// 429 and 503 ask for time (kSlowDown), with the answer's Retry-After when it has one. A URL that
// can never be posted to (not http or https, no host, not a URL) is a configuration error too:
// the developer log names it at construction, and every batch is refused without a try.
class QENCurlCollectorTransport final : public QENCollectorTransport {
 public:
  QENCurlCollectorTransport(std::string collectorURL, std::chrono::milliseconds requestTimeout);
  ~QENCurlCollectorTransport() override;
  QENCurlCollectorTransport(const QENCurlCollectorTransport&) = delete;
  QENCurlCollectorTransport& operator=(const QENCurlCollectorTransport&) = delete;

  Outcome post(std::string_view body, const Headers& headers,
               const QENDeliveryDeadline& deadline) override;
  void wake() override;
  std::optional<std::chrono::seconds> retryAfter() const override { return retryAfter_; }

  // A Retry-After value as a wait from `now`: delay-seconds, or an HTTP date (a date past is no
  // wait). nullopt for anything else.
  static std::optional<std::chrono::seconds> parseRetryAfter(std::string_view value,
                                                             std::time_t now);

 private:
  struct Transfers;  // libcurl's multi handle, which lets wake cut a transfer at once

  Outcome outcomeOf(bool transferred, long status) const;

  const std::string collectorURL_;
  const bool usable_;
  const std::chrono::milliseconds requestTimeout_;
  std::unique_ptr<Transfers> transfers_;
  std::optional<std::chrono::seconds> retryAfter_;
};
