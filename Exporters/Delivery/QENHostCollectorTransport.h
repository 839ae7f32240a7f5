#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>

#include "QENCollectorTransport.h"

// Posts through the host's own HTTP stack (OkHttp on Android, URLSession on iOS: its proxies, its
// certificate pinning), which the host hands over as one function. The function runs on a thread
// of this transport's, one post at a time, and may block for as long as the host's client lets
// it: the reporter waits for its answer only until the deadline, then gives the post up as cut
// off (kCutOff), so that a shutdown never waits on the host either. A post given up goes on to its
// end unseen, and the next waits for it, within its own deadline. What the function throws is
// logged and counts as kTransportFailed.
class QENHostCollectorTransport final : public QENCollectorTransport {
 public:
  // Sends `body` with `headers` and says how it went; on kSlowDown, sets `retryAfter` when the
  // collector said how long to wait.
  using Post = std::function<Outcome(std::string_view body, const Headers& headers,
                                     std::optional<std::chrono::seconds>& retryAfter)>;

  explicit QENHostCollectorTransport(Post post);
  ~QENHostCollectorTransport() override;
  QENHostCollectorTransport(const QENHostCollectorTransport&) = delete;
  QENHostCollectorTransport& operator=(const QENHostCollectorTransport&) = delete;

  Outcome post(std::string_view body, const Headers& headers,
               const QENDeliveryDeadline& deadline) override;
  void wake() override;
  std::optional<std::chrono::seconds> retryAfter() const override { return retryAfter_; }

 private:
  struct Worker;  // the thread, and what it shares with posts; it outlives this transport

  std::shared_ptr<Worker> worker_;
  std::optional<std::chrono::seconds> retryAfter_;
};
