#include "QENGzip.h"

#include <zlib.h>

#include <limits>

namespace {

// zlib's window bits for a gzip wrapper rather than a zlib one.
constexpr int kGzipWindowBits = 15 + 16;
constexpr int kMemoryLevel = 8;

}  // namespace

std::optional<std::string> QENGzip::compress(std::string_view bytes) {
  z_stream stream{};
  if (bytes.size() > std::numeric_limits<uInt>::max() ||
      deflateInit2(&stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, kGzipWindowBits, kMemoryLevel,
                   Z_DEFAULT_STRATEGY) != Z_OK) {
    return std::nullopt;
  }
  std::string out(deflateBound(&stream, static_cast<uLong>(bytes.size())) + 32, '\0');
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
  stream.avail_in = static_cast<uInt>(bytes.size());
  stream.next_out = reinterpret_cast<Bytef*>(out.data());
  stream.avail_out = static_cast<uInt>(out.size());
  const int result = deflate(&stream, Z_FINISH);
  out.resize(stream.total_out);
  deflateEnd(&stream);
  if (result != Z_STREAM_END) {
    return std::nullopt;
  }
  return out;
}

std::optional<std::string> QENGzip::decompress(std::string_view gzipped) {
  z_stream stream{};
  if (inflateInit2(&stream, kGzipWindowBits) != Z_OK) {
    return std::nullopt;
  }
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(gzipped.data()));
  stream.avail_in = static_cast<uInt>(gzipped.size());
  std::string out;
  int result = Z_OK;
  char chunk[16384];
  while (result == Z_OK) {
    stream.next_out = reinterpret_cast<Bytef*>(chunk);
    stream.avail_out = sizeof chunk;
    result = inflate(&stream, Z_NO_FLUSH);
    out.append(chunk, sizeof chunk - stream.avail_out);
  }
  inflateEnd(&stream);
  return result == Z_STREAM_END ? std::optional(std::move(out)) : std::nullopt;
}
