#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "QENFoundation/QENFoundationDevLogger.h"

// Captures the assertion records logged while it lives, in place of the default sink.
class QENCapturedAssertions {
 public:
  QENCapturedAssertions() {
    QENFoundationDevLogger::sharedInstance().remote().setSink(
        [this](const QENDevLogRecord& record) {
          const std::lock_guard guard(mutex_);
          records_.push_back(record);
        });
  }
  ~QENCapturedAssertions() { QENFoundationDevLogger::sharedInstance().remote().setSink(nullptr); }

  std::vector<QENDevLogRecord> records() const {
    const std::lock_guard guard(mutex_);
    return records_;
  }

  std::vector<std::string> messages() const {
    std::vector<std::string> messages;
    for (const QENDevLogRecord& record : records()) {
      messages.push_back(record.message);
    }
    return messages;
  }

 private:
  mutable std::mutex mutex_;
  std::vector<QENDevLogRecord> records_;
};
