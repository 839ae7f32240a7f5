#pragma once

#include <functional>
#include <string>

// One error record handed to the developer logger.
struct QENDevLogRecord {
  std::string message;
  bool skipLogOnProduction = true;
  int additionalFramesToTrim = 0;
  // The operation that logged, as "-[Class selector]" or "+[Class selector]".
  std::string method;
  // Computes the short "Module/File" identifier of the source file. Call it only when the
  // identifier is needed: it is the one costly part of a record.
  std::function<std::string()> fileID;
  int line = 0;
  std::string filePath;
};
