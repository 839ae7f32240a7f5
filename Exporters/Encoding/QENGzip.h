#pragma once

#include <string>
#include <string_view>

// gzip (RFC 1952), as HTTP's Content-Encoding: gzip carries it, by zlib.
class QENGzip {
 public:
  static std::string compress(std::string_view bytes);
};
