#pragma once

#include <cstdint>
#include <string>

// The Linux reachability probe: a non-loopback interface that is up and wireless means Wi-Fi,
// any other non-loopback interface that is up means wired, none means unknown.
class QENLinuxNetworkInterfaces {
 public:
  static std::int64_t reachabilityStatus(const std::string& interfacesFolder = "/sys/class/net");
};
