#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

// Writes Apache Thrift's binary protocol: big-endian integers, length-prefixed strings and
// binaries, and field headers of a type byte and a 16-bit field id.
class QENThriftBinaryWriter {
 public:
  enum Type : std::uint8_t {
    kStop = 0,
    kBool = 2,
    kI16 = 6,
    kI32 = 8,
    kI64 = 10,
    kString = 11,
    kStruct = 12,
    kList = 15,
  };

  void writeFieldBegin(Type type, std::int16_t fieldId);
  void writeFieldStop() { bytes_.push_back(kStop); }
  void writeListBegin(Type elementType, std::int32_t size);
  void writeI16(std::int16_t value) { writeBigEndian(static_cast<std::uint16_t>(value), 2); }
  void writeI32(std::int32_t value) { writeBigEndian(static_cast<std::uint32_t>(value), 4); }
  void writeI64(std::int64_t value) { writeBigEndian(static_cast<std::uint64_t>(value), 8); }
  void writeBinary(const std::byte* data, std::size_t size);
  void writeString(std::string_view text);
  // Bytes already in this protocol, such as a struct written by another writer.
  void writeEncoded(std::string_view bytes) {
    bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
  }

  void reserve(std::size_t byteCount) { bytes_.reserve(byteCount); }
  const std::vector<std::uint8_t>& bytes() const { return bytes_; }
  std::vector<std::uint8_t> takeBytes() { return std::move(bytes_); }

 private:
  void writeBigEndian(std::uint64_t value, int byteCount);

  std::vector<std::uint8_t> bytes_;
};
