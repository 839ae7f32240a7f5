#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace QENThrift {

// The network context of a span's host: the Zipkin model's Endpoint. The IPv6 address is
// optional and absent unless given.
class Endpoint {
 public:
  Endpoint() = default;
  // initWithIpv4:port:service_name:ipv6:
  Endpoint(std::int32_t ipv4, std::int16_t port, std::string service_name,
           std::optional<std::vector<std::byte>> ipv6)
      : ipv4_(ipv4), port_(port), service_name_(std::move(service_name)), ipv6_(std::move(ipv6)) {}

  std::int32_t ipv4() const noexcept { return ipv4_; }
  void setIpv4(std::int32_t ipv4) noexcept { ipv4_ = ipv4; }
  std::int16_t port() const noexcept { return port_; }
  void setPort(std::int16_t port) noexcept { port_ = port; }
  const std::string& service_name() const noexcept { return service_name_; }
  void setService_name(std::string name) { service_name_ = std::move(name); }
  const std::optional<std::vector<std::byte>>& ipv6() const noexcept { return ipv6_; }
  void setIpv6(std::optional<std::vector<std::byte>> ipv6) { ipv6_ = std::move(ipv6); }

  friend bool operator==(const Endpoint&, const Endpoint&) = default;

 private:
  std::int32_t ipv4_ = 0;
  std::int16_t port_ = 0;
  std::string service_name_;
  std::optional<std::vector<std::byte>> ipv6_;
};

}  // namespace QENThrift
