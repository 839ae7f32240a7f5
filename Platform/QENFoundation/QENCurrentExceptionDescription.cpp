#include "QENCurrentExceptionDescription.h"

#include <exception>

std::string QENCurrentExceptionDescription() {
#if defined(__cpp_exceptions)
  try {
    throw;
  } catch (const std::exception& error) {
    return error.what();
  } catch (...) {
  }
#endif
  return "an exception of unknown type";
}
