#include "QENFoundationRemoteLogger.h"

#include <unistd.h>

#include <utility>

void QENFoundationRemoteLogger::logErrorWithMessage(std::string message, bool skipLogOnProduction,
                                                    int additionalFramesToTrim, std::string method,
                                                    std::function<std::string()> fileID, int line,
                                                    std::string filePath) {
  const QENDevLogRecord record{std::move(message), skipLogOnProduction, additionalFramesToTrim,
                               std::move(method),  std::move(fileID),   line,
                               std::move(filePath)};
  const std::shared_ptr<const Sink> sink = sink_.load();
  if (sink) {
    (*sink)(record);
  } else {
    writeRecordToStandardError(record);
  }
}

void QENFoundationRemoteLogger::setSink(Sink sink) {
  sink_.store(sink ? std::make_shared<const Sink>(std::move(sink)) : nullptr);
}

void QENFoundationRemoteLogger::writeRecordToStandardError(const QENDevLogRecord& record) {
  std::string line = "[QENPerformanceLogger] error: " + record.message + " (" + record.method;
  if (record.fileID) {
    line += ", " + record.fileID() + ":" + std::to_string(record.line);
  }
  line += ")\n";
  // One write keeps lines from different threads whole; a failed write has nowhere to go.
  [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, line.data(), line.size());
}
