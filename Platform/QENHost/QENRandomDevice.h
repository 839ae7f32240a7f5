#pragma once

#include <cstddef>

// Reads `size` bytes from /dev/urandom (POSIX); false if it cannot be read.
bool QENReadRandomDevice(void* destination, std::size_t size) noexcept;
