#pragma once

#include <string_view>

namespace QENThrift {

// The Zipkin core constants: the standard annotation values and binary-annotation keys.
class zipkin_spanConstants {
 public:
  static constexpr std::string_view CLIENT_SEND() { return "cs"; }
  static constexpr std::string_view CLIENT_RECV() { return "cr"; }
  static constexpr std::string_view SERVER_SEND() { return "ss"; }
  static constexpr std::string_view SERVER_RECV() { return "sr"; }
  static constexpr std::string_view MESSAGE_SEND() { return "ms"; }
  static constexpr std::string_view MESSAGE_RECV() { return "mr"; }
  static constexpr std::string_view WIRE_SEND() { return "ws"; }
  static constexpr std::string_view WIRE_RECV() { return "wr"; }
  static constexpr std::string_view CLIENT_SEND_FRAGMENT() { return "csf"; }
  static constexpr std::string_view CLIENT_RECV_FRAGMENT() { return "crf"; }
  static constexpr std::string_view SERVER_SEND_FRAGMENT() { return "ssf"; }
  static constexpr std::string_view SERVER_RECV_FRAGMENT() { return "srf"; }
  static constexpr std::string_view LOCAL_COMPONENT() { return "lc"; }
  static constexpr std::string_view CLIENT_ADDR() { return "ca"; }
  static constexpr std::string_view SERVER_ADDR() { return "sa"; }
  static constexpr std::string_view MESSAGE_ADDR() { return "ma"; }
  static constexpr std::string_view HTTP_HOST() { return "http.host"; }
  static constexpr std::string_view HTTP_METHOD() { return "http.method"; }
  static constexpr std::string_view HTTP_PATH() { return "http.path"; }
  static constexpr std::string_view HTTP_ROUTE() { return "http.route"; }
  static constexpr std::string_view HTTP_URL() { return "http.url"; }
  static constexpr std::string_view HTTP_STATUS_CODE() { return "http.status_code"; }
  static constexpr std::string_view HTTP_REQUEST_SIZE() { return "http.request.size"; }
  static constexpr std::string_view HTTP_RESPONSE_SIZE() { return "http.response.size"; }
  static constexpr std::string_view ERROR() { return "error"; }
};

}  // namespace QENThrift
