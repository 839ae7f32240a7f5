#pragma once

#include <optional>
#include <string>

// What the host tells span export about the app: the signed-in user's numeric id (as a decimal
// string, absent when nobody is signed in) and the host's platform label.
class QENPerformanceMetricAppContext {
 public:
  // initWithUserId:qenPlatform:
  QENPerformanceMetricAppContext(std::optional<std::string> userId, std::string qenPlatform)
      : userId_(std::move(userId)), qenPlatform_(std::move(qenPlatform)) {}

  const std::optional<std::string>& userId() const noexcept { return userId_; }
  const std::string& qenPlatform() const noexcept { return qenPlatform_; }

 private:
  std::optional<std::string> userId_;
  std::string qenPlatform_;
};
