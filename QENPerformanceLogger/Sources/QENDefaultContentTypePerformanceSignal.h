#pragma once

#include <array>
#include <cstdint>
#include <memory>

#include "QENContentTypePerformanceSignal.h"

// Nine unsigned counts of what a feed held. Immutable; every combination makes a new signal.
//
// Subtracting (this minus the argument) gives null for a signal of another kind, or as soon as
// one count would go below zero: never a wrapped or partial result. Merging never fails: a
// signal of another kind (or null) counts as zeros, and sums wrap around past 2^64 - 1.
class QENDefaultContentTypePerformanceSignal : public QENContentTypePerformanceSignal {
 public:
  static constexpr std::size_t kCountNumber = 9;
  using Counts = std::array<std::uint64_t, kCountNumber>;

  // init: all nine counts 0.
  QENDefaultContentTypePerformanceSignal() = default;
  // initWithModelCount:videoStoryQenCount:otherStoryQenCount:videoQenCount:carouselQenCount:
  // otherQenCount:carouselStoryCount:gridStoryCount:otherStoryCount:
  QENDefaultContentTypePerformanceSignal(
      std::uint64_t modelCount, std::uint64_t videoStoryQenCount, std::uint64_t otherStoryQenCount,
      std::uint64_t videoQenCount, std::uint64_t carouselQenCount, std::uint64_t otherQenCount,
      std::uint64_t carouselStoryCount, std::uint64_t gridStoryCount,
      std::uint64_t otherStoryCount);

  Pointer signalBySubstractingFromSignal(const Pointer& signal) const override;
  Pointer signalByMergingWithSignal(const Pointer& signal) const override;
  const QENDefaultContentTypePerformanceSignal* asDefaultContentTypeSignal() const override {
    return this;
  }

  std::uint64_t modelCount() const { return counts_[0]; }
  std::uint64_t videoStoryQenCount() const { return counts_[1]; }
  std::uint64_t otherStoryQenCount() const { return counts_[2]; }
  std::uint64_t videoQenCount() const { return counts_[3]; }
  std::uint64_t carouselQenCount() const { return counts_[4]; }
  std::uint64_t otherQenCount() const { return counts_[5]; }
  std::uint64_t carouselStoryCount() const { return counts_[6]; }
  std::uint64_t gridStoryCount() const { return counts_[7]; }
  std::uint64_t otherStoryCount() const { return counts_[8]; }
  // The nine counts in initialiser order.
  const Counts& counts() const { return counts_; }

 private:
  explicit QENDefaultContentTypePerformanceSignal(const Counts& counts) : counts_(counts) {}

  Counts counts_{};
};
