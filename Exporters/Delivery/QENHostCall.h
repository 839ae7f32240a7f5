#pragma once

#include <string>

#include "QENFoundation/QENCurrentExceptionDescription.h"
#include "QENFoundation/QENFoundationDevLogger.h"

// Calls host code (a tag filter, a transport, a callback) on one of the library's own threads,
// where nothing of the host's could catch what it throws and the process would end: what it
// throws is logged as `who` threw it, and false returned; the thread goes on. True when `call`
// returned.
template <class Call>
bool QENCallHost(const char* who, Call&& call) {
#if defined(__cpp_exceptions)
  try {
    call();
    return true;
  } catch (...) {
    QENFoundationDevLogger::sharedInstance().remote().logErrorWithMessage(
        std::string(who) + " threw on a library thread: " + QENCurrentExceptionDescription(), true,
        1, "QENPerformanceLogger", nullptr, __LINE__, __FILE__);
    return false;
  }
#else
  call();
  return true;
#endif
}
