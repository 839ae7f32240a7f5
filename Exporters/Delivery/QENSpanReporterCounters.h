#pragma once

#include <cstdint>
#include <string>

// What happened to the spans handed to a reporter. Without a spool, once it has stopped,
// accepted == delivered + dropped(), and delivered is what the collector acknowledged. With a
// spool, accepted == persisted + droppedQueueFull + droppedOverReportCap + droppedRateLimited +
// droppedShutDown + droppedSpoolWriteFailed + droppedNoConsent + what the tag filter lost, and what
// was persisted is delivered, now or by a later process, or dropped by the spool's bounds or its
// clearing; delivered then also counts spans that earlier processes persisted.
struct QENSpanReporterCounters {
  std::uint64_t accepted = 0;   // handed to report
  std::uint64_t persisted = 0;  // written to the spool
  std::uint64_t delivered = 0;  // in a batch the collector answered with 2xx
  std::uint64_t retried = 0;    // sent again after an attempt, per span and attempt (a spooled
                                // batch counts when it was attempted before, in any process)
  // Undelivered, by cause:
  std::uint64_t droppedQueueFull = 0;      // pushed out of a full queue by newer spans
  std::uint64_t droppedOverReportCap = 0;  // past maximumSpansPerReport in one report
  std::uint64_t droppedRateLimited = 0;    // past maximumSpansPerMinute
  std::uint64_t droppedClientError = 0;    // refused with a 3xx or 4xx answer but 429 (final)
  std::uint64_t droppedTooLarge = 0;       // a span alone still too large for the collector
  std::uint64_t droppedGaveUp = 0;         // connection errors, 429 or 5xx answers past the retries
  std::uint64_t droppedShutDown = 0;       // queued, waiting to retry or in flight when the
                                           // reporter's time ran out, or reported after it stopped
                                           // (with a spool: only what was not yet persisted)
  std::uint64_t droppedSpoolFull = 0;      // pushed out of the spool by its byte bound
  std::uint64_t droppedSpoolExpired = 0;   // older than the spool's age bound
  std::uint64_t droppedSpoolWriteFailed = 0;  // not written: disk full, read-only, no spool
  std::uint64_t droppedNoConsent = 0;     // reported, queued, or taken for a post (a first try, a
                                          // retry, a split's half) when consent was refused,
                                          // never persisted
  std::uint64_t droppedSpoolCleared = 0;  // persisted, then deleted when consent was not granted
  std::uint64_t droppedHostFault = 0;     // lost to host code that threw on the reporter's thread:
                                          // the tag filter (that span), the transport (the batch)

  std::uint64_t dropped() const;
  // "queue full 3, gave up 10": each cause with a count, for the log.
  std::string droppedByCause() const;
};
