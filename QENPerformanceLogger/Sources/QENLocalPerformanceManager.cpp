#include "QENLocalPerformanceManager.h"

#include <array>
#include <optional>
#include <utility>

#include "QENCommandLineOptions/QENCommandLineOptions.h"

namespace {

constexpr std::string_view kDefaultTarget = "home_feed_render";
constexpr std::string_view kSubspansTest = "ColdStartupSubspans";
constexpr std::string_view kAppInitCriticalPathTest =
    "ColdStartupLinearCriticalPathAppInitSubspans";
constexpr std::string_view kQensLoadCriticalPathTest =
    "ColdStartupLinearCriticalPathQensLoadSubspans";

// Test name to the metric it measures, tried in this order.
constexpr std::array<std::pair<std::string_view, std::string_view>, 13> kTargets = {{
    {"ColdStartup", "home_feed_render"},
    {"QenCloseUpDetails", "qen_closeup_details"},
    {"AutoCompleteSearch", "search_feed_render"},
    {"BottomSpinner", "grid_bottom_spinner"},
    {"BoardPickerFromContextMenu", "board_picker"},
    {"OwnProfile", "own_profile"},
    {"InAppBrowser", "webview_pageload"},
    {"SaveQen", "qen_save_request"},
    {"AppInit", "home_feed_render_app_init"},
    {"ColdStartUIRender", "home_feed_render_ui_rendering"},
    {kSubspansTest, "home_feed_render_image_loading"},
    {kAppInitCriticalPathTest, "c_network_preload"},
    {kQensLoadCriticalPathTest, "c_grid_img_placeholder"},
}};

}  // namespace

const QENLocalPerformanceManager::NameSet& QENLocalPerformanceManager::subspans() {
  static const auto* const names = new NameSet{
      "login_using_stored_credential", "feed_response_handling", "home_feed_render_image_loading"};
  return *names;
}

const QENLocalPerformanceManager::NameSet&
QENLocalPerformanceManager::linearCriticalPathAppInitSubspans() {
  static const auto* const names =
      new NameSet{"c_app_task_init", "c_config_preload", "c_network_preload"};
  return *names;
}

const QENLocalPerformanceManager::NameSet&
QENLocalPerformanceManager::linearCriticalPathQensLoadSubspans() {
  static const auto* const names = new NameSet{"c_grid_img_placeholder"};
  return *names;
}

bool QENLocalPerformanceManager::isMetricTheTargetForCurrentPerformanceTest(
    std::string_view metricName) {
  const std::optional<std::string> testName = QENCommandLineOptions::performanceTestName();
  if (!testName) {
    return metricName == kDefaultTarget;
  }
  for (const auto& [test, target] : kTargets) {
    if (*testName == test) {
      return metricName == target;
    }
  }
  return false;
}

bool QENLocalPerformanceManager::shouldLogMetricForCurrentPerformanceTest(
    std::string_view metricName) {
  const std::optional<std::string> testName = QENCommandLineOptions::performanceTestName();
  if (testName && *testName == kSubspansTest) {
    return subspans().contains(metricName);
  }
  if (testName && testName->find(kAppInitCriticalPathTest) != std::string::npos) {
    return linearCriticalPathAppInitSubspans().contains(metricName);
  }
  if (testName && testName->find(kQensLoadCriticalPathTest) != std::string::npos) {
    return linearCriticalPathQensLoadSubspans().contains(metricName);
  }
  return isMetricTheTargetForCurrentPerformanceTest(metricName);
}
