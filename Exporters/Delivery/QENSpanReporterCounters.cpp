#include "QENSpanReporterCounters.h"

#include <utility>

namespace {

using Counter = std::uint64_t QENSpanReporterCounters::*;

constexpr std::pair<const char*, Counter> kDropCauses[] = {
    {"queue full", &QENSpanReporterCounters::droppedQueueFull},
    {"over the report cap", &QENSpanReporterCounters::droppedOverReportCap},
    {"rate limited", &QENSpanReporterCounters::droppedRateLimited},
    {"client error", &QENSpanReporterCounters::droppedClientError},
    {"too large", &QENSpanReporterCounters::droppedTooLarge},
    {"gave up", &QENSpanReporterCounters::droppedGaveUp},
    {"shut down", &QENSpanReporterCounters::droppedShutDown},
    {"spool full", &QENSpanReporterCounters::droppedSpoolFull},
    {"spool expired", &QENSpanReporterCounters::droppedSpoolExpired},
    {"spool write failed", &QENSpanReporterCounters::droppedSpoolWriteFailed},
    {"no consent", &QENSpanReporterCounters::droppedNoConsent},
    {"spool cleared", &QENSpanReporterCounters::droppedSpoolCleared},
    {"host code threw", &QENSpanReporterCounters::droppedHostFault},
};

}  // namespace

std::uint64_t QENSpanReporterCounters::dropped() const {
  std::uint64_t total = 0;
  for (const auto& cause : kDropCauses) {
    total += this->*cause.second;
  }
  return total;
}

std::string QENSpanReporterCounters::droppedByCause() const {
  std::string byCause;
  for (const auto& [cause, counter] : kDropCauses) {
    if (this->*counter > 0) {
      byCause.append(byCause.empty() ? "" : ", ")
          .append(cause)
          .append(" ")
          .append(std::to_string(this->*counter));
    }
  }
  return byCause;
}
