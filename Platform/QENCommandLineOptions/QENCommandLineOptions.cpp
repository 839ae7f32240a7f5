#include "QENCommandLineOptions.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <mutex>
#include <string_view>

namespace {

struct HostOverrides {
  std::mutex mutex;
  std::optional<bool> performanceTestMode;
  std::optional<std::optional<std::string>> performanceTestName;
};

HostOverrides& overrides() {
  static auto* const instance = new HostOverrides();
  return *instance;
}

bool isTrueText(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char character) { return std::tolower(character); });
  return lower == "1" || lower == "true" || lower == "yes";
}

}  // namespace

bool QENCommandLineOptions::isPerformanceTestMode() {
  {
    const std::lock_guard guard(overrides().mutex);
    if (overrides().performanceTestMode) {
      return *overrides().performanceTestMode;
    }
  }
  const char* value = std::getenv(kPerformanceTestModeVariable);
  return value != nullptr && isTrueText(value);
}

std::optional<std::string> QENCommandLineOptions::performanceTestName() {
  {
    const std::lock_guard guard(overrides().mutex);
    if (overrides().performanceTestName) {
      return *overrides().performanceTestName;
    }
  }
  const char* value = std::getenv(kPerformanceTestNameVariable);
  return value != nullptr ? std::optional<std::string>(value) : std::nullopt;
}

void QENCommandLineOptions::setPerformanceTestMode(bool enabled) {
  const std::lock_guard guard(overrides().mutex);
  overrides().performanceTestMode = enabled;
}

void QENCommandLineOptions::setPerformanceTestName(std::optional<std::string> name) {
  const std::lock_guard guard(overrides().mutex);
  overrides().performanceTestName = std::move(name);
}

void QENCommandLineOptions::resetToEnvironment() {
  const std::lock_guard guard(overrides().mutex);
  overrides().performanceTestMode.reset();
  overrides().performanceTestName.reset();
}
