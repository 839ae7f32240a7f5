#pragma once

#include <string_view>

// The B3 propagation headers that join a request's server spans to the client's trace. Id
// values are 16 lower-case hexadecimal digits (QENFoundation::qen_networkEndianHexString).
inline constexpr std::string_view kZipkinHTTPHeaderTraceId = "X-B3-TraceId";
inline constexpr std::string_view kZipkinHTTPHeaderSpanId = "X-B3-SpanId";
inline constexpr std::string_view kZipkinHTTPHeaderParentSpanId = "X-B3-ParentSpanId";
inline constexpr std::string_view kZipkinHTTPHeaderDebugKey = "X-B3-Flags";
inline constexpr std::string_view kZipkinHTTPHeaderDebugValue = "1";
