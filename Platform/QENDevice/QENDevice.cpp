#include "QENDevice.h"

#include <sys/utsname.h>

#include <mutex>

namespace {

struct DeviceInformation {
  std::mutex mutex;
  std::int64_t userInterfaceIdiom = QENUserInterfaceIdiomUnspecified;
  std::string systemVersion;
};

std::string kernelRelease() {
  utsname names{};
  return ::uname(&names) == 0 ? std::string(names.release) : std::string();
}

DeviceInformation& deviceInformation() {
  static auto* const information = [] {
    auto* created = new DeviceInformation();
    created->systemVersion = kernelRelease();
    return created;
  }();
  return *information;
}

}  // namespace

std::int64_t QENDevice::userInterfaceIdiom() {
  const std::lock_guard guard(deviceInformation().mutex);
  return deviceInformation().userInterfaceIdiom;
}

std::string QENDevice::systemVersion() {
  const std::lock_guard guard(deviceInformation().mutex);
  return deviceInformation().systemVersion;
}

void QENDevice::setUserInterfaceIdiom(std::int64_t idiom) {
  const std::lock_guard guard(deviceInformation().mutex);
  deviceInformation().userInterfaceIdiom = idiom;
}

void QENDevice::setSystemVersion(std::string version) {
  const std::lock_guard guard(deviceInformation().mutex);
  deviceInformation().systemVersion = std::move(version);
}
