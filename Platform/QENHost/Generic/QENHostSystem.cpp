// The backend of every host without one of its own (Apple platforms, the BSDs): portable POSIX
// only. Such hosts draw ids from the C library's arc4random_buf (see QENRandom.cpp), name their
// executable with QENBundle::setMainBundleExecutablePath and feed reachability themselves.
#include "QENHost/QENHostSystem.h"

#include <chrono>

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

// No coarse clock that POSIX promises shares the steady clock's origin: the precise one serves.
// (On Apple systems, clock_gettime_nsec_np(CLOCK_UPTIME_RAW_APPROX) is the cheap reading of the
// clock libc++'s steady clock uses, for a backend of their own.)
double QENHostSystem::coarseMonotonicSeconds() noexcept {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}
