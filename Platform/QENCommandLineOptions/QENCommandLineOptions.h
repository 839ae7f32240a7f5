#pragma once

#include <optional>
#include <string>

// The launch options the library reads: whether the process runs a performance test, and the
// name of that test.
//
// By default both come from the environment, read on every call:
//   QEN_PERFORMANCE_TEST_MODE  "1", "true" or "YES" (any case) turns the mode on
//   QEN_PERFORMANCE_TEST_NAME  the test's name; unset means no test
// A host that takes them from its own launch arguments sets them instead; a value set here wins
// over the environment until resetToEnvironment. Safe to call from any thread.
class QENCommandLineOptions {
 public:
  static bool isPerformanceTestMode();
  static std::optional<std::string> performanceTestName();

  static void setPerformanceTestMode(bool enabled);
  // No value means the process runs no performance test.
  static void setPerformanceTestName(std::optional<std::string> name);
  static void resetToEnvironment();

  static constexpr const char* kPerformanceTestModeVariable = "QEN_PERFORMANCE_TEST_MODE";
  static constexpr const char* kPerformanceTestNameVariable = "QEN_PERFORMANCE_TEST_NAME";
};
