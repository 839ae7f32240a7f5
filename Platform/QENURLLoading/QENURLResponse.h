#pragma once

#include <cstdint>

// A response of the URL-loading system. Polymorphic so that an HTTP response
// (QENHTTPURLResponse) can be told apart with dynamic_cast.
class QENURLResponse {
 public:
  static constexpr std::int64_t kUnknownContentLength = -1;

  explicit QENURLResponse(std::int64_t expectedContentLength = kUnknownContentLength)
      : expectedContentLength_(expectedContentLength) {}
  virtual ~QENURLResponse() = default;

  // The announced length of the body, or -1 when unknown.
  std::int64_t expectedContentLength() const noexcept { return expectedContentLength_; }

 private:
  std::int64_t expectedContentLength_;
};
