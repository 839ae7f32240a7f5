#include "QENDevice.h"

#include <sys/utsname.h>

#include <mutex>

#if defined(__APPLE__)
#include <TargetConditionals.h>
#endif

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

std::string_view QENDevice::platformName() noexcept {
#if defined(__ANDROID__)
  return "android";
#elif defined(__APPLE__) && TARGET_OS_IPHONE
  return "ios";
#elif defined(__APPLE__)
  return "macos";
#elif defined(__linux__)
  return "linux";
#elif defined(_WIN32)
  return "windows";
#elif defined(__FreeBSD__)
  return "freebsd";
#elif defined(__OpenBSD__)
  return "openbsd";
#elif defined(__NetBSD__)
  return "netbsd";
#else
  return "unknown";
#endif
}

std::string_view QENDevice::operatingSystemType() noexcept {
#if defined(__APPLE__)
  return "darwin";
#elif defined(__ANDROID__) || defined(__linux__)
  return "linux";
#else
  return platformName();
#endif
}

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
