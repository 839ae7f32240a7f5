#pragma once

#include <set>
#include <string>
#include <string_view>

// Which metrics a local performance-test run logs. The test's name comes from the launch options
// (QENCommandLineOptions::performanceTestName), read afresh on every call; without one the run is
// an ordinary cold start and only "home_feed_render" is logged.
class QENLocalPerformanceManager {
 public:
  using NameSet = std::set<std::string, std::less<>>;

  // The subspans that the three subspan tests log, each built once.
  static const NameSet& subspans();
  static const NameSet& linearCriticalPathAppInitSubspans();
  static const NameSet& linearCriticalPathQensLoadSubspans();

  // Whether the metric is the one the current test measures (exact, case-sensitive names).
  static bool isMetricTheTargetForCurrentPerformanceTest(std::string_view metricName);
  // Whether the current test logs the metric: the subspan test's set for "ColdStartupSubspans"
  // (exact name), a critical-path set for a test name that contains a critical-path test's name,
  // else the target.
  static bool shouldLogMetricForCurrentPerformanceTest(std::string_view metricName);
};
