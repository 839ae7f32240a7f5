#pragma once

#include <chrono>

// Waits between attempts that double from `initial` up to `maximum`, and start over after a
// success.
class QENBackoff {
 public:
  QENBackoff(std::chrono::milliseconds initial, std::chrono::milliseconds maximum);

  // The wait before the next attempt; the one after it is twice as long, within the maximum.
  std::chrono::milliseconds next();
  void reset();

 private:
  std::chrono::milliseconds initial_;
  std::chrono::milliseconds maximum_;
  std::chrono::milliseconds current_;
};
