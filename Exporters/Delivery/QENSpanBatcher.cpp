#include "QENSpanBatcher.h"

#include <utility>

bool QENSpanBatcher::add(SpanPointer span, Clock::time_point now) {
  bool droppedOldest = false;
  if (queue_.size() >= limits_.maximumQueuedSpans) {
    queue_.pop_front();
    droppedOldest = true;
  }
  if (queue_.empty()) {
    oldestQueuedAt_ = now;
  }
  queue_.push_back(std::move(span));
  return droppedOldest;
}

std::size_t QENSpanBatcher::clear() {
  const std::size_t dropped = queue_.size();
  queue_.clear();
  return dropped;
}

bool QENSpanBatcher::isDue(Clock::time_point now) const {
  return !queue_.empty() && (queue_.size() >= limits_.maximumBatchSpans || now >= dueAt());
}

bool QENSpanBatcher::batchTakesMore(std::size_t spans, std::size_t bytes) const {
  return !queue_.empty() && spans < limits_.maximumBatchSpans &&
         (spans == 0 || bytes < limits_.maximumBatchBytes);
}

QENSpanBatcher::SpanPointer QENSpanBatcher::takeOldest() {
  if (queue_.empty()) {
    return nullptr;
  }
  SpanPointer oldest = std::move(queue_.front());
  queue_.pop_front();
  return oldest;
}
