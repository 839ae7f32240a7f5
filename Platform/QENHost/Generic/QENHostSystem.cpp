// The backend of every host without one of its own (Apple platforms, the BSDs): portable POSIX
// only. Such hosts draw ids from the C library's arc4random_buf (see QENRandom.cpp), name their
// executable with QENBundle::setMainBundleExecutablePath and feed reachability themselves.
#include "QENHost/QENHostSystem.h"

#include "QENHost/QENRandomDevice.h"
#include "QENReachability/QENNetworkingReachabilityManager.h"

bool QENHostSystem::readRandomBytes(void* destination, std::size_t size) noexcept {
  return QENReadRandomDevice(destination, size);
}

std::string QENHostSystem::runningExecutablePath() {
  return std::string();
}

std::int64_t QENHostSystem::networkReachabilityStatus() {
  return QENNetworkingReachabilityStatusUnknown;
}
