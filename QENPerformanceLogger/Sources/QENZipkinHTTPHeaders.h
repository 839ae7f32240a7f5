#pragma once

#include <string_view>

// The B3 propagation headers that join a request's server spans to the client's trace. Id
// values are 16 lower-case hexadecimal digits (QENFoundation::qen_networkEndianHexString).
inline constexpr std::string_view kZipkinHTTPHeaderTraceId = "X-B3-TraceId";
inline constexpr std::string_view kZipkinHTTPHeaderSpanId = "X-B3-SpanId";
inline constexpr std::string_view kZipkinHTTPHeaderParentSpanId = "X-B3-ParentSpanId";
inline constexpr std::string_view kZipkinHTTPHeaderDebugKey = "X-B3-Flags";
inline constexpr std::string_view kZipkinHTTPHeaderDebugValue = "1";

// Also read by servers, and sent beside the four above (QENTracePropagationHeaders): the upload
// decision, B3's single-header form and W3C trace context.
inline constexpr std::string_view kB3SampledHeader = "X-B3-Sampled";
inline constexpr std::string_view kB3SingleHeader = "b3";
inline constexpr std::string_view kW3CTraceParentHeader = "traceparent";
