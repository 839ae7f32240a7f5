#include "QENNetworkingReachabilityManager.h"

#include <filesystem>
#include <fstream>
#include <system_error>

namespace {

bool isUp(const std::filesystem::path& interface) {
  std::ifstream operstate(interface / "operstate");
  std::string state;
  return std::getline(operstate, state) && state == "up";
}

}  // namespace

QENNetworkingReachabilityManager& QENNetworkingReachabilityManager::prohibitedManager() {
  static auto* const manager = new QENNetworkingReachabilityManager();
  return *manager;
}

std::int64_t QENNetworkingReachabilityManager::statusWithTimeout(double) const {
  {
    const std::lock_guard guard(mutex_);
    if (status_) {
      return *status_;
    }
  }
  return linuxStatus();
}

std::int64_t QENNetworkingReachabilityManager::cellularType() const {
  const std::lock_guard guard(mutex_);
  return cellularType_;
}

std::vector<std::string> QENNetworkingReachabilityManager::carrierNames() const {
  const std::lock_guard guard(mutex_);
  return carrierNames_;
}

void QENNetworkingReachabilityManager::setStatus(std::optional<std::int64_t> status) {
  const std::lock_guard guard(mutex_);
  status_ = status;
}

void QENNetworkingReachabilityManager::setCellularType(std::int64_t cellularType) {
  const std::lock_guard guard(mutex_);
  cellularType_ = cellularType;
}

void QENNetworkingReachabilityManager::setCarrierNames(std::vector<std::string> carrierNames) {
  const std::lock_guard guard(mutex_);
  carrierNames_ = std::move(carrierNames);
}

std::int64_t QENNetworkingReachabilityManager::linuxStatus(
    const std::string& networkInterfacesFolder) {
  std::error_code error;
  std::int64_t status = QENNetworkingReachabilityStatusUnknown;
  for (const auto& entry : std::filesystem::directory_iterator(networkInterfacesFolder, error)) {
    const std::filesystem::path& interface = entry.path();
    if (interface.filename() == "lo" || !isUp(interface)) {
      continue;
    }
    if (std::filesystem::exists(interface / "wireless", error)) {
      return QENNetworkingReachabilityStatusWiFi;
    }
    status = QENNetworkingReachabilityStatusWired;
  }
  return status;
}
