#pragma once

#include <optional>
#include <string>
#include <string_view>

// gzip (RFC 1952), as HTTP's Content-Encoding: gzip carries it, by zlib.
class QENGzip {
 public:
  // nullopt when zlib fails (it could not allocate its state), or for a body past 4 GiB.
  static std::optional<std::string> compress(std::string_view bytes);
  // The bytes a gzip stream holds; nullopt when it is not one, or is cut short.
  static std::optional<std::string> decompress(std::string_view gzipped);
};
