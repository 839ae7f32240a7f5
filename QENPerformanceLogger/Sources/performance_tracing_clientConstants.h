#pragma once

#include <string_view>

// The library's own binary-annotation keys for network measurements.
class performance_tracing_clientConstants {
 public:
  static constexpr std::string_view IP_VERSION() { return "ip.version"; }
  static constexpr std::string_view NETWORK_EXPECTED_SIZE() { return "net.expected_size"; }
  static constexpr std::string_view NETWORK_RESPONSE_STATUS() { return "net.response_status"; }
  static constexpr std::string_view ENDPOINT_ID() { return "endpoint_id"; }
};
