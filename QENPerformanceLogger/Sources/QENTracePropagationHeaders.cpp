#include "QENTracePropagationHeaders.h"

#include <mutex>

#include "QENFoundation/QENNetworkEndianHexString.h"

namespace {

struct PolicySetting {
  std::mutex mutex;
  std::shared_ptr<const QENTracePropagationPolicy> policy =
      std::make_shared<const QENTracePropagationPolicy>();
};

PolicySetting& policySetting() {
  static auto* const setting = new PolicySetting();  // never destroyed: safe in late requests
  return *setting;
}

std::string hex(std::int64_t id) {
  return QENFoundation::qen_networkEndianHexString(id);
}

}  // namespace

QENTracePropagationHeaders::HeaderFields QENTracePropagationHeaders::headersForContext(
    const Context& context) {
  HeaderFields headers{
      {std::string(kZipkinHTTPHeaderTraceId), hex(context.traceId)},
      {std::string(kZipkinHTTPHeaderSpanId), hex(context.spanId)},
  };
  if (context.parentSpanId != 0) {
    headers.emplace(kZipkinHTTPHeaderParentSpanId, hex(context.parentSpanId));
  }
  if (context.debug) {
    headers.emplace(kZipkinHTTPHeaderDebugKey, kZipkinHTTPHeaderDebugValue);
  }
  addSingleHeaders(headers, context);
  return headers;
}

void QENTracePropagationHeaders::addSingleHeaders(HeaderFields& headers, const Context& context) {
  if (!context.debug) {
    headers.emplace(kB3SampledHeader, context.sampled ? "1" : "0");
  }
  if (context.traceId == 0 || context.spanId == 0) {
    return;
  }
  // Built by appending: g++ 12 at -O3 misreads `"-" + std::string` as an overlapping copy.
  std::string single = hex(context.traceId);
  single.append("-").append(hex(context.spanId)).append("-");
  single.append(context.debug ? "d" : context.sampled ? "1" : "0");
  if (context.parentSpanId != 0) {
    single.append("-").append(hex(context.parentSpanId));
  }
  headers.emplace(kB3SingleHeader, std::move(single));
  const bool sampled = context.sampled || context.debug;
  headers.emplace(kW3CTraceParentHeader, "00-0000000000000000" + hex(context.traceId) + "-" +
                                             hex(context.spanId) + (sampled ? "-01" : "-00"));
}

void QENTracePropagationHeaders::setPolicy(QENTracePropagationPolicy policy) {
  auto shared = std::make_shared<const QENTracePropagationPolicy>(std::move(policy));
  const std::lock_guard guard(policySetting().mutex);
  policySetting().policy = std::move(shared);
}

std::shared_ptr<const QENTracePropagationPolicy> QENTracePropagationHeaders::policy() {
  const std::lock_guard guard(policySetting().mutex);
  return policySetting().policy;
}

QENTracePropagationHeaders::HeaderFields QENTracePropagationHeaders::headersForTracedURL(
    const QENParentPerformanceMetric& parent, const std::shared_ptr<const QENURL>& url,
    QENPerformanceMetric& requestMetric) {
  if (!parent.shouldIncludeTraceIdForURL(url) || !policy()->allowsHost(url->host())) {
    return {};
  }
  Context context;
  context.traceId = parent.traceId();
  context.parentSpanId = parent.parentSpanIdForURL(url);
  context.spanId = requestMetric.generateAndStoreSpanIdForURL(url);
  context.sampled = parent.shouldUpload();
  return headersForContext(context);
}

QENTracePropagationHeaders::HeaderFields QENTracePropagationHeaders::headersForVideoPreload(
    const QENPerformanceSignal& signal, bool sampled) {
  const auto& url = signal.videoUrl();
  if (url == nullptr || !policy()->allowsHost(url->host())) {
    return {};
  }
  const auto ownHeaders = signal.getHeaderFields();
  HeaderFields headers(ownHeaders.begin(), ownHeaders.end());
  Context context;
  context.traceId = signal.traceId();
  context.spanId = signal.cdnSpanId();
  context.parentSpanId = signal.spanId();
  context.sampled = sampled;
  context.debug = signal.enableCdnLogging();
  addSingleHeaders(headers, context);
  return headers;
}
