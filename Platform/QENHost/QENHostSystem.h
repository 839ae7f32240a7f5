#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// What the platform layer asks of the operating system itself. Each host OS has a backend of its
// own under Platform/QENHost/<OS>/, chosen by the build: Linux (Android included, same kernel)
// reads the kernel's interfaces; Generic serves every other host with portable POSIX calls and
// leaves the rest to what the host supplies (QENBundle, QENNetworkingReachabilityManager).
// Nothing outside a backend's folder may use an interface of one operating system only.
class QENHostSystem {
 public:
  // Fills `destination` from the system's cryptographic random source; false if it cannot.
  static bool readRandomBytes(void* destination, std::size_t size) noexcept;
  // The path of the running program, or "" when the system does not say.
  static std::string runningExecutablePath();
  // A QENNetworkingReachabilityStatus value from what the system shows of its network
  // interfaces; Unknown (0) when it shows nothing.
  static std::int64_t networkReachabilityStatus();
  // The monotonic clock (the steady clock's origin, in seconds) read as cheaply as the system
  // allows, a few milliseconds coarse where that is cheaper: for checks that only tell an hour.
  static double coarseMonotonicSeconds() noexcept;
};
