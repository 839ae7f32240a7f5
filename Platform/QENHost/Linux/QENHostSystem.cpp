// The Linux backend (Android included): the kernel's random source, /proc and /sys.
#include "QENHost/QENHostSystem.h"

#include <sys/random.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstddef>

#include "QENHost/QENRandomDevice.h"
#include "QENLinuxNetworkInterfaces.h"

namespace {

bool readWithGetrandom(std::byte* destination, std::size_t size) noexcept {
#if defined(__ANDROID__) && __ANDROID_API__ < 28
  // Bionic declares getrandom from API 28 on; Android draws its ids from arc4random anyway.
  (void)destination;
  return size == 0;
#else
  while (size > 0) {
    const ssize_t got = ::getrandom(destination, size, 0);
    if (got < 0) {
      if (errno == EINTR) {
        continue;
      }
      return false;  // ENOSYS before Linux 3.17
    }
    destination += got;
    size -= static_cast<std::size_t>(got);
  }
  return true;
#endif
}

}  // namespace

bool QENHostSystem::readRandomBytes(void* destination, std::size_t size) noexcept {
  auto* bytes = static_cast<std::byte*>(destination);
  return readWithGetrandom(bytes, size) || QENReadRandomDevice(destination, size);
}

std::string QENHostSystem::runningExecutablePath() {
  char path[PATH_MAX];
  const ssize_t length = ::readlink("/proc/self/exe", path, sizeof path - 1);
  return length > 0 ? std::string(path, static_cast<std::size_t>(length)) : std::string();
}

std::int64_t QENHostSystem::networkReachabilityStatus() {
  return QENLinuxNetworkInterfaces::reachabilityStatus();
}

// CLOCK_MONOTONIC_COARSE: the kernel's last tick of CLOCK_MONOTONIC (the steady clock of both C++
// libraries on Linux), read without the hardware counter.
double QENHostSystem::coarseMonotonicSeconds() noexcept {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}
