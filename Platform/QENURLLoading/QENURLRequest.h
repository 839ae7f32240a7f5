#pragma once

#include <memory>
#include <optional>
#include <string>

#include "QENURL.h"

// A request of the URL-loading system, as far as the library reads it.
class QENURLRequest {
 public:
  QENURLRequest(std::shared_ptr<const QENURL> url, std::optional<std::string> httpMethod)
      : url_(std::move(url)), httpMethod_(std::move(httpMethod)) {}

  const std::shared_ptr<const QENURL>& URL() const noexcept { return url_; }
  const std::optional<std::string>& HTTPMethod() const noexcept { return httpMethod_; }

 private:
  std::shared_ptr<const QENURL> url_;
  std::optional<std::string> httpMethod_;
};
