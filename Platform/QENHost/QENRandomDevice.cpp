#include "QENRandomDevice.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

bool QENReadRandomDevice(void* destination, std::size_t size) noexcept {
  const int descriptor = ::open("/dev/urandom", O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) {
    return false;
  }
  auto* bytes = static_cast<std::byte*>(destination);
  while (size > 0) {
    const ssize_t got = ::read(descriptor, bytes, size);
    if (got <= 0) {
      if (got < 0 && errno == EINTR) {
        continue;
      }
      ::close(descriptor);
      return false;
    }
    bytes += got;
    size -= static_cast<std::size_t>(got);
  }
  ::close(descriptor);
  return true;
}
