#pragma once

#include <memory>
#include <string>

// The bundle that holds the running code. On Linux the library is linked into the host's
// executable, so every class lives in the main bundle, whose executable is the running program
// (/proc/self/exe). A host that ships the library in a shared object of its own names that
// object with setMainBundleExecutablePath.
class QENBundle {
 public:
  static std::shared_ptr<const QENBundle> mainBundle();
  // Replaces the main bundle's executable path (for hosts that know better than /proc).
  static void setMainBundleExecutablePath(std::string path);

  explicit QENBundle(std::string executablePath) : executablePath_(std::move(executablePath)) {}

  const std::string& executablePath() const noexcept { return executablePath_; }

 private:
  std::string executablePath_;
};
