#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

// Reachability statuses.
inline constexpr std::int64_t QENNetworkingReachabilityStatusUnknown = 0;
inline constexpr std::int64_t QENNetworkingReachabilityStatusWiFi = 1;
inline constexpr std::int64_t QENNetworkingReachabilityStatusCellular = 2;
inline constexpr std::int64_t QENNetworkingReachabilityStatusWired = 3;

// Cellular radio types: 0 unknown, then the radio generations the host reports
// (1 GPRS, 2 EDGE, 3 3G, 4 4G/LTE, 5 5G).
inline constexpr std::int64_t QENNetworkingCellularTypeUnknown = 0;

// What the device's network looks like now.
//
// The host feeds it: setStatus when its reachability observer learns of a change, and the
// cellular type and carrier names when it knows them. Until the host sets a status, Linux
// answers from /sys/class/net: an interface that is up and wireless means Wi-Fi, any other
// non-loopback interface that is up means wired, none means unknown. Safe from any thread.
class QENNetworkingReachabilityManager {
 public:
  // The shared instance.
  static QENNetworkingReachabilityManager& prohibitedManager();

  // The current status. Never waits past `timeoutSeconds`; nothing here blocks at all (the
  // Linux probe reads a few small files), so the answer is immediate.
  std::int64_t statusWithTimeout(double timeoutSeconds) const;
  std::int64_t cellularType() const;
  std::vector<std::string> carrierNames() const;

  // A value replaces the Linux probe until cleared with std::nullopt.
  void setStatus(std::optional<std::int64_t> status);
  void setCellularType(std::int64_t cellularType);
  void setCarrierNames(std::vector<std::string> carrierNames);

  // The status Linux reports from /sys/class/net (or the given folder, for tests).
  static std::int64_t linuxStatus(const std::string& networkInterfacesFolder = "/sys/class/net");

 private:
  mutable std::mutex mutex_;
  std::optional<std::int64_t> status_;
  std::int64_t cellularType_ = QENNetworkingCellularTypeUnknown;
  std::vector<std::string> carrierNames_;
};
