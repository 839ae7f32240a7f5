#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

// The bundle that holds the running code: its executable and its information dictionary.
//
// The library is linked into the host's executable, so every class lives in the main bundle,
// whose executable is the running program as the host system names it (on Linux from /proc; a
// host without such a source sets it with setMainBundleExecutablePath). Its information starts with
// "CFBundleName" (the executable's file name) and "CFBundleShortVersionString" ("unknown"); a
// host sets its real version (and anything else it wants exported) at start-up, before the
// first export.
class QENBundle {
 public:
  using InfoDictionary = std::map<std::string, std::string, std::less<>>;

  static std::shared_ptr<const QENBundle> mainBundle();
  // For hosts that ship the library in a shared object of their own.
  static void setMainBundleExecutablePath(std::string path);
  static void setMainBundleInfoValue(std::string key, std::string value);

  QENBundle(std::string executablePath, InfoDictionary infoDictionary)
      : executablePath_(std::move(executablePath)), infoDictionary_(std::move(infoDictionary)) {}

  const std::string& executablePath() const noexcept { return executablePath_; }
  std::optional<std::string> objectForInfoDictionaryKey(std::string_view key) const;

 private:
  std::string executablePath_;
  InfoDictionary infoDictionary_;
};
