#pragma once

#include <atomic>

#include "QENFoundationRemoteLogger.h"

// The developer logger of the foundation layer: the entry point through which the library
// reports programmer errors (failed assertions).
class QENFoundationDevLogger {
 public:
  // Whether failed assertions are reported at all. On by default; a host may switch it off, and
  // failed assertions then cost one read of this flag.
  static bool isFoundationAssertsLoggingEnabled() noexcept;
  static void setFoundationAssertsLoggingEnabled(bool enabled) noexcept;

  // The process-wide logger.
  static QENFoundationDevLogger& sharedInstance();

  // The logger that takes error records (its sink is replaceable).
  QENFoundationRemoteLogger& remote() noexcept { return remote_; }

 private:
  QENFoundationDevLogger() = default;

  QENFoundationRemoteLogger remote_;
};
