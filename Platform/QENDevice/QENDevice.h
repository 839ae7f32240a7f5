#pragma once

#include <cstdint>
#include <string>

// User-interface idioms.
inline constexpr std::int64_t QENUserInterfaceIdiomUnspecified = -1;
inline constexpr std::int64_t QENUserInterfaceIdiomPhone = 0;
inline constexpr std::int64_t QENUserInterfaceIdiomPad = 1;

// The device the host runs on. On Linux the idiom is unspecified and the system version is the
// kernel release (uname); a host on a phone or tablet sets both at start-up, before the first
// export. Safe from any thread.
class QENDevice {
 public:
  static std::int64_t userInterfaceIdiom();
  static std::string systemVersion();

  static void setUserInterfaceIdiom(std::int64_t idiom);
  static void setSystemVersion(std::string version);
};
