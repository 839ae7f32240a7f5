#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "QENDeliveryDeadline.h"

// How a reporter's request bodies reach a collector. The reporter decides what to send, when, and
// what to do with each outcome; a transport only makes one attempt. Posts come from the reporter's
// one thread, one at a time; wake may come from any thread meanwhile.
//
// QENCurlCollectorTransport (libcurl, HTTP POST) is the default. A host may bring its own (the
// platform's HTTP stack), and tests use one that answers as they script it.
class QENCollectorTransport {
 public:
  using Headers = std::vector<std::pair<std::string, std::string>>;

  enum class Outcome {
    kDelivered,  // the collector took the batch (2xx)
    kRetry,      // no connection, no whole answer, or a server error (5xx): worth another try
    kSlowDown,   // the collector asked for time (429, 503): worth sending after retryAfter()
    kTooLarge,   // the body is too large for the collector (413): worth sending in parts
    kUnsupportedEncoding,  // the collector does not read the body's encoding (415)
    kRefused,              // the collector will never take it (3xx, other 4xx): final
    kCutOff,               // the deadline came before the answer
    kTransportFailed,      // the transport threw rather than answer: final
    kHeldBack,  // never a transport's answer: the reporter did not post, as consent was refused or
                // sending paused after the batch was taken
  };

  virtual ~QENCollectorTransport() = default;

  // Posts `body` with `headers` (Content-Type, Content-Encoding and the User-Agent among them).
  // Returns kCutOff once `deadline` has passed, without waiting for the answer.
  virtual Outcome post(std::string_view body, const Headers& headers,
                       const QENDeliveryDeadline& deadline) = 0;
  // Makes a post under way look at its deadline now, which has just moved earlier.
  virtual void wake() = 0;
  // After a post that ended kSlowDown, how long the collector asked to wait (its Retry-After);
  // nullopt when it did not say. Read on the posting thread, before the next post.
  virtual std::optional<std::chrono::seconds> retryAfter() const { return std::nullopt; }
};
