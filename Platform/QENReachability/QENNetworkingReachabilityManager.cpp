#include "QENNetworkingReachabilityManager.h"

#include "QENHost/QENHostSystem.h"

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
  return QENHostSystem::networkReachabilityStatus();
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
