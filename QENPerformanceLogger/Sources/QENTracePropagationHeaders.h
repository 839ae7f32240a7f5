#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "QENParentPerformanceMetric.h"
#include "QENPerformanceSignal.h"
#include "QENTracePropagationPolicy.h"
#include "QENURLLoading/QENURL.h"
#include "QENZipkinHTTPHeaders.h"

// The headers that let a server's spans join a request to the client's trace. Besides the four
// B3 headers the library defines (X-B3-TraceId, X-B3-SpanId, X-B3-ParentSpanId and, for debug
// tracing, X-B3-Flags: 1), servers read:
//
// - X-B3-Sampled: "1" or "0", the upload decision. Left out with X-B3-Flags, which implies it.
// - b3: "<trace id>-<span id>-<1, 0 or d for debug>-<parent span id>", the single-header form.
// - traceparent: "00-<trace id in 32 hex digits, zero-padded>-<span id>-<01 sampled, else 00>",
//   W3C trace context.
//
// An id of zero is invalid in both single headers, so with a zero trace or span id (one draw in
// 2^64) they are left out and only the B3 headers go. A request with no parent (parent span id
// 0) sends no X-B3-ParentSpanId, and its b3 header ends at the sampling state.
class QENTracePropagationHeaders {
 public:
  using HeaderFields = std::map<std::string, std::string, std::less<>>;

  struct Context {
    std::int64_t traceId = 0;
    std::int64_t spanId = 0;
    std::int64_t parentSpanId = 0;  // 0: a root request, which names no parent
    bool sampled = false;
    bool debug = false;
  };

  static HeaderFields headersForContext(const Context& context);

  // The hosts traced requests may send headers to, for the whole process; none until the app
  // sets it. Safe to call from any thread at any time; a request asks once.
  static void setPolicy(QENTracePropagationPolicy policy);
  static std::shared_ptr<const QENTracePropagationPolicy> policy();

  // For a request to `url` traced under `parent` and measured by `requestMetric`: draws and
  // stores the request's span id on `requestMetric` (so that the span it exports is the one the
  // server joins) and returns the headers, sampled as `parent` would upload now. Empty, and
  // nothing drawn, when `parent` does not trace the URL or the policy does not allow its host.
  static HeaderFields headersForTracedURL(const QENParentPerformanceMetric& parent,
                                          const std::shared_ptr<const QENURL>& url,
                                          QENPerformanceMetric& requestMetric);

  // For the CDN request of a video preload: the signal's own headers (its span is the parent,
  // the CDN's span id the request's; debug when CDN logging is on), with the host's sampling
  // decision for the preload. Empty when the policy does not allow the video's host: a preload
  // from a third-party CDN sends no trace id, as a traced request to it would not. (The signal's
  // own getHeaderFields does not ask the policy.)
  static HeaderFields headersForVideoPreload(const QENPerformanceSignal& signal, bool sampled);

 private:
  static void addSingleHeaders(HeaderFields& headers, const Context& context);
};
