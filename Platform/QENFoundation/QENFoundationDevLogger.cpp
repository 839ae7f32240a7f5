#include "QENFoundationDevLogger.h"

namespace {
std::atomic<bool> assertsLoggingEnabled{true};
}

bool QENFoundationDevLogger::isFoundationAssertsLoggingEnabled() noexcept {
  return assertsLoggingEnabled.load(std::memory_order_relaxed);
}

void QENFoundationDevLogger::setFoundationAssertsLoggingEnabled(bool enabled) noexcept {
  assertsLoggingEnabled.store(enabled, std::memory_order_relaxed);
}

QENFoundationDevLogger& QENFoundationDevLogger::sharedInstance() {
  // Never destroyed: assertions may fire from threads that outlive static destruction.
  static QENFoundationDevLogger* const instance = new QENFoundationDevLogger();
  return *instance;
}
