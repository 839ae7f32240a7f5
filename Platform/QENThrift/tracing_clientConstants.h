#pragma once

#include <string_view>

namespace QENThrift {

// The tracing client's binary-annotation keys and span-name parts. The values are this
// project's (docs/metrics.md lists them); a backend that already has its own names changes them
// here.
class tracing_clientConstants {
 public:
  // User-wait-time (uwt) spans.
  static constexpr std::string_view UWT_CAUSE() { return "uwt_cause"; }
  static constexpr std::string_view UWT_RESULT() { return "uwt_result"; }
  static constexpr std::string_view UWT_LOCAL_COMPONENT() { return "uwt"; }
  static constexpr std::string_view UWT_SPAN_PREFIX() { return "uwt_"; }
  // Where the user was.
  static constexpr std::string_view VIEW_TYPE() { return "view.type"; }
  static constexpr std::string_view VIEW_PARAMETER() { return "view.parameter"; }
  static constexpr std::string_view USER_ID() { return "user.id"; }
  // The network.
  static constexpr std::string_view NETWORK_TYPE() { return "net.type"; }
  static constexpr std::string_view NETWORK_CELL_TYPE() { return "net.cell_type"; }
  static constexpr std::string_view NETWORK_CELL_CARRIER() { return "net.cell_carrier"; }
  static constexpr std::string_view NETWORK_SPEED() { return "net.speed_kbps"; }
  // The application and the device.
  static constexpr std::string_view APP_VERSION() { return "app.version"; }
  static constexpr std::string_view APP_TYPE() { return "app.type"; }
  static constexpr std::string_view DEVICE_TYPE() { return "device.type"; }
  static constexpr std::string_view DEVICE_VERSION() { return "device.version"; }
  static constexpr std::string_view DEVICE_OS() { return "device.os"; }
  static constexpr std::string_view DEVICE_OS_VERSION() { return "device.os_version"; }
  // Requests.
  static constexpr std::string_view CDN_CACHE() { return "cdn.cache"; }
  static constexpr std::string_view CDN_NAME() { return "cdn.name"; }
  static constexpr std::string_view DATA_SOURCE() { return "data.source"; }
  static constexpr std::string_view HTTP_METHOD() { return "http.method"; }
  static constexpr std::string_view URL() { return "http.url"; }
};

}  // namespace QENThrift
