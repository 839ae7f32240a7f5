#include "QENAssertionFailureReport.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <memory>
#include <vector>

#include "QENBundle/QENBundle.h"
#include "QENFoundation/QENFormat.h"
#include "QENFoundation/QENFoundationDevLogger.h"

namespace {

constexpr std::array<std::string_view, 4> kModuleMarkers = {"Platform", "Library", "FeatureLibrary",
                                                            "Feature"};
constexpr std::string_view kUnknownModule = "unknown";

std::vector<std::string_view> pathComponents(std::string_view path) {
  std::vector<std::string_view> components;
  std::size_t start = 0;
  for (;;) {
    const std::size_t slash = path.find('/', start);
    components.push_back(path.substr(start, slash - start));
    if (slash == std::string_view::npos) {
      return components;
    }
    start = slash + 1;
  }
}

bool isModuleMarker(std::string_view component) {
  for (const std::string_view marker : kModuleMarkers) {
    if (component == marker) {
      return true;
    }
  }
  return false;
}

std::string lastPathComponent(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::string fileIdentifier(const QENBundle& bundle, std::string_view sourcePath,
                           std::string_view fileName, const char* moduleName) {
  if (moduleName != nullptr) {
    return std::string(moduleName) + "/" + std::string(fileName);
  }
  std::string module = ModuleNameForSourcePath(sourcePath);
  if (module == kUnknownModule || module.find('.') != std::string::npos) {
    module = lastPathComponent(bundle.executablePath());
  }
  return module + "/" + std::string(fileName);
}

}  // namespace

std::string ModuleNameForSourcePath(std::string_view sourcePath) {
  const std::vector<std::string_view> components = pathComponents(sourcePath);
  std::string module(kUnknownModule);
  for (std::size_t index = 0; index < components.size(); ++index) {
    if (!isModuleMarker(components[index])) {
      continue;
    }
    if (index + 2 >= components.size()) {
      break;  // a marker that is last or next-to-last ends the walk
    }
    const std::string_view name = components[index + 1];
    const std::string_view next = components[index + 2];
    if (next == "Sources") {
      module = name;
    } else if (next == "Tests") {
      module = std::string(name) + "Tests";
    } else {
      module = std::string(name) + std::string(next);
    }
  }
  return module;
}

void AssertionFailureReport(std::string message, const char* method, int line,
                            const char* sourcePath, const char* fileName, const char* moduleName) {
  QENFoundationRemoteLogger& logger = QENFoundationDevLogger::sharedInstance().remote();
  // The bundle is captured now; everything else of the identifier waits until it is asked for.
  auto fileID = [bundle = QENBundle::mainBundle(), sourcePath, fileName, moduleName] {
    return fileIdentifier(*bundle, sourcePath, fileName, moduleName);
  };
  logger.logErrorWithMessage(std::move(message), true, 1, method, std::move(fileID), line,
                             sourcePath);
}

std::string QENFormatAssertionMessage(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  std::string message = QENFoundation::formatStringV(format, arguments);
  va_end(arguments);
  return message;
}
