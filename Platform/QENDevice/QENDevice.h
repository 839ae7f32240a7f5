#pragma once

#include <cstdint>
#include <string>
#include <string_view>

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
  // The platform the library was built for, in lower case: "ios", "android", "macos", "linux",
  // "windows", "freebsd", ...; "unknown" where the compiler does not tell.
  static std::string_view platformName() noexcept;
  // The same as OpenTelemetry's os.type names it: "darwin" for every Apple system, "linux" for
  // Android and Linux, "windows", "freebsd", ...; "unknown" where the compiler does not tell.
  static std::string_view operatingSystemType() noexcept;

  static void setUserInterfaceIdiom(std::int64_t idiom);
  static void setSystemVersion(std::string version);
};
