#pragma once

#include <functional>
#include <memory>
#include <string>

#include "QENAtomicReference.h"
#include "QENDevLogRecord.h"

// The logger that takes error records. Records go to a sink; the default sink writes one line
// per record to standard error. A host routes records into its own logging by replacing the
// sink, and tests capture them the same way. Records may be logged from any thread, so a sink
// must be safe to call concurrently.
class QENFoundationRemoteLogger {
 public:
  using Sink = std::function<void(const QENDevLogRecord&)>;

  void logErrorWithMessage(std::string message, bool skipLogOnProduction,
                           int additionalFramesToTrim, std::string method,
                           std::function<std::string()> fileID, int line, std::string filePath);

  // Replaces the sink; an empty sink restores the default one. A record being delivered while
  // the sink is replaced goes to either the old or the new sink, never to both.
  void setSink(Sink sink);

  // The default sink: one line on standard error, written with a single call.
  static void writeRecordToStandardError(const QENDevLogRecord& record);

 private:
  QENAtomicReference<std::shared_ptr<const Sink>> sink_;
};
