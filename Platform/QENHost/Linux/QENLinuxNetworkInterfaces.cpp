#include "QENLinuxNetworkInterfaces.h"

#include <filesystem>
#include <fstream>
#include <system_error>

#include "QENReachability/QENNetworkingReachabilityManager.h"

namespace {

bool isUp(const std::filesystem::path& interface) {
  std::ifstream operstate(interface / "operstate");
  std::string state;
  return std::getline(operstate, state) && state == "up";
}

}  // namespace

std::int64_t QENLinuxNetworkInterfaces::reachabilityStatus(const std::string& interfacesFolder) {
  std::error_code error;
  std::int64_t status = QENNetworkingReachabilityStatusUnknown;
  for (const auto& entry : std::filesystem::directory_iterator(interfacesFolder, error)) {
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
