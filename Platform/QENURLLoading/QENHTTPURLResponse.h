#pragma once

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "QENURLResponse.h"

// Orders header names without regard to ASCII case: HTTP header names are case-insensitive.
struct QENCaseInsensitiveLess {
  using is_transparent = void;
  bool operator()(std::string_view left, std::string_view right) const {
    return std::lexicographical_compare(
        left.begin(), left.end(), right.begin(), right.end(),
        [](unsigned char a, unsigned char b) { return std::tolower(a) < std::tolower(b); });
  }
};

// An HTTP response: status code and header fields. Header lookup ignores the case of the name
// ("X-CDN" is found as "x-cdn"), as HTTP defines header names.
class QENHTTPURLResponse : public QENURLResponse {
 public:
  using HeaderFields = std::map<std::string, std::string, QENCaseInsensitiveLess>;

  QENHTTPURLResponse(std::int64_t statusCode, HeaderFields allHeaderFields,
                     std::int64_t expectedContentLength = kUnknownContentLength)
      : QENURLResponse(expectedContentLength),
        statusCode_(statusCode),
        allHeaderFields_(std::move(allHeaderFields)) {}

  const QENHTTPURLResponse* asHTTPURLResponse() const override { return this; }
  std::int64_t statusCode() const noexcept { return statusCode_; }
  const HeaderFields& allHeaderFields() const noexcept { return allHeaderFields_; }
  std::optional<std::string> valueForHTTPHeaderField(std::string_view name) const {
    const auto found = allHeaderFields_.find(name);
    return found == allHeaderFields_.end() ? std::nullopt : std::optional(found->second);
  }

 private:
  std::int64_t statusCode_;
  HeaderFields allHeaderFields_;
};
