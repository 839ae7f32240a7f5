#pragma once

#include <cstdint>

class QENHTTPURLResponse;

// A response of the URL-loading system; an HTTP response (QENHTTPURLResponse) tells itself apart
// through asHTTPURLResponse, without run-time type information.
class QENURLResponse {
 public:
  static constexpr std::int64_t kUnknownContentLength = -1;

  explicit QENURLResponse(std::int64_t expectedContentLength = kUnknownContentLength)
      : expectedContentLength_(expectedContentLength) {}
  virtual ~QENURLResponse() = default;

  // The announced length of the body, or -1 when unknown.
  std::int64_t expectedContentLength() const noexcept { return expectedContentLength_; }
  // This response as an HTTP response, or null.
  virtual const QENHTTPURLResponse* asHTTPURLResponse() const { return nullptr; }

 private:
  std::int64_t expectedContentLength_;
};
