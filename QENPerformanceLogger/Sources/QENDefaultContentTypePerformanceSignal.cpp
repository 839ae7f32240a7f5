#include "QENDefaultContentTypePerformanceSignal.h"

QENDefaultContentTypePerformanceSignal::QENDefaultContentTypePerformanceSignal(
    std::uint64_t modelCount, std::uint64_t videoStoryQenCount, std::uint64_t otherStoryQenCount,
    std::uint64_t videoQenCount, std::uint64_t carouselQenCount, std::uint64_t otherQenCount,
    std::uint64_t carouselStoryCount, std::uint64_t gridStoryCount, std::uint64_t otherStoryCount)
    : counts_{modelCount,         videoStoryQenCount, otherStoryQenCount,
              videoQenCount,      carouselQenCount,   otherQenCount,
              carouselStoryCount, gridStoryCount,     otherStoryCount} {}

QENContentTypePerformanceSignal::Pointer
QENDefaultContentTypePerformanceSignal::signalBySubstractingFromSignal(
    const Pointer& signal) const {
  const auto* other = signal ? signal->asDefaultContentTypeSignal() : nullptr;
  if (other == nullptr) {
    return nullptr;
  }
  Counts difference{};
  for (std::size_t index = 0; index < kCountNumber; ++index) {
    if (counts_[index] < other->counts_[index]) {
      return nullptr;
    }
    difference[index] = counts_[index] - other->counts_[index];
  }
  return std::shared_ptr<const QENDefaultContentTypePerformanceSignal>(
      new QENDefaultContentTypePerformanceSignal(difference));
}

QENContentTypePerformanceSignal::Pointer
QENDefaultContentTypePerformanceSignal::signalByMergingWithSignal(const Pointer& signal) const {
  const auto* other = signal ? signal->asDefaultContentTypeSignal() : nullptr;
  Counts sum = counts_;
  if (other != nullptr) {
    for (std::size_t index = 0; index < kCountNumber; ++index) {
      sum[index] += other->counts_[index];  // unsigned: wraps past the largest value
    }
  }
  return std::shared_ptr<const QENDefaultContentTypePerformanceSignal>(
      new QENDefaultContentTypePerformanceSignal(sum));
}
