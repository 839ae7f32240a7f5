#pragma once

#include <memory>

// What a feed held when it was measured, as a value that snapshots can be subtracted from and
// merged with. ("Substracting" is spelled so on purpose: the name is part of the interface.)
class QENDefaultContentTypePerformanceSignal;

class QENContentTypePerformanceSignal {
 public:
  using Pointer = std::shared_ptr<const QENContentTypePerformanceSignal>;
  virtual ~QENContentTypePerformanceSignal() = default;
  // This signal minus `signal`, or null when that cannot be taken.
  virtual Pointer signalBySubstractingFromSignal(const Pointer& signal) const = 0;
  virtual Pointer signalByMergingWithSignal(const Pointer& signal) const = 0;
  // This signal as the library's default kind, or null: signals are combined only with their own
  // kind, which is told without run-time type information.
  virtual const QENDefaultContentTypePerformanceSignal* asDefaultContentTypeSignal() const {
    return nullptr;
  }
};
