#include "QENThriftBinaryWriter.h"

#include <limits>

void QENThriftBinaryWriter::writeBigEndian(std::uint64_t value, int byteCount) {
  std::uint8_t digits[8];
  for (int index = byteCount - 1; index >= 0; --index, value >>= 8) {
    digits[index] = static_cast<std::uint8_t>(value);
  }
  bytes_.insert(bytes_.end(), digits, digits + byteCount);
}

void QENThriftBinaryWriter::writeFieldBegin(Type type, std::int16_t fieldId) {
  const auto id = static_cast<std::uint16_t>(fieldId);
  const std::uint8_t header[3] = {type, static_cast<std::uint8_t>(id >> 8),
                                  static_cast<std::uint8_t>(id)};
  bytes_.insert(bytes_.end(), header, header + 3);
}

void QENThriftBinaryWriter::writeListBegin(Type elementType, std::int32_t size) {
  bytes_.push_back(elementType);
  writeI32(size);
}

void QENThriftBinaryWriter::writeBinary(const std::byte* data, std::size_t size) {
  // The protocol's length is 32-bit; nothing the library makes comes near it.
  const auto length = static_cast<std::int32_t>(
      std::min<std::size_t>(size, std::numeric_limits<std::int32_t>::max()));
  writeI32(length);
  const auto* first = reinterpret_cast<const std::uint8_t*>(data);
  bytes_.insert(bytes_.end(), first, first + length);
}

void QENThriftBinaryWriter::writeString(std::string_view text) {
  writeBinary(reinterpret_cast<const std::byte*>(text.data()), text.size());
}
