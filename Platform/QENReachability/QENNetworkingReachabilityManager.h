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
// cellular type and carrier names when it knows them. Until the host sets a status, the host
// system's backend answers (QENHostSystem): on Linux from its network interfaces, elsewhere
// unknown. Safe from any thread.
class QENNetworkingReachabilityManager {
 public:
  // The shared instance.
  static QENNetworkingReachabilityManager& prohibitedManager();

  // The current status. Never waits past `timeoutSeconds`; nothing here blocks at all (the
  // Linux probe reads a few small files), so the answer is immediate.
  std::int64_t statusWithTimeout(double timeoutSeconds) const;
  std::int64_t cellularType() const;
  std::vector<std::string> carrierNames() const;

  // A value replaces the system probe until cleared with std::nullopt.
  void setStatus(std::optional<std::int64_t> status);
  void setCellularType(std::int64_t cellularType);
  void setCarrierNames(std::vector<std::string> carrierNames);

 private:
  mutable std::mutex mutex_;
  std::optional<std::int64_t> status_;
  std::int64_t cellularType_ = QENNetworkingCellularTypeUnknown;
  std::vector<std::string> carrierNames_;
};
