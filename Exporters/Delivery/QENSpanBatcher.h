#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <memory>

#include "QENThrift/Span.h"

// The spans waiting to leave, and when they make a batch: once a batch's worth has queued, or once
// the oldest has waited the flush interval. A batch is cut by span count and by encoded size. Past
// the queue's bound the oldest span makes room.
//
// Not thread-safe: the reporter keeps it under its lock.
class QENSpanBatcher {
 public:
  using Clock = std::chrono::steady_clock;
  using SpanPointer = std::shared_ptr<QENThrift::Span>;

  struct Limits {
    std::size_t maximumQueuedSpans;
    std::size_t maximumBatchSpans;
    std::size_t maximumBatchBytes;
    std::chrono::milliseconds flushInterval;
  };

  explicit QENSpanBatcher(Limits limits) : limits_(limits) {}

  // Queues `span` (not null), queued at `now`; true when the oldest span was dropped for it.
  bool add(SpanPointer span, Clock::time_point now);
  bool empty() const { return queue_.empty(); }
  // Drops every queued span; returns how many.
  std::size_t clear();

  // Whether a batch should be cut at `now`.
  bool isDue(Clock::time_point now) const;
  // When the queued spans make a batch, if no more come; meaningless when empty.
  Clock::time_point dueAt() const { return oldestQueuedAt_ + limits_.flushInterval; }

  // Whether a batch of `spans` spans, `bytes` encoded, takes one more (it always takes a first).
  bool batchTakesMore(std::size_t spans, std::size_t bytes) const;
  // The oldest queued span, off the queue; null when empty.
  SpanPointer takeOldest();

 private:
  const Limits limits_;
  std::deque<SpanPointer> queue_;
  Clock::time_point oldestQueuedAt_;
};
