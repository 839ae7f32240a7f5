#pragma once

#include <string>

// Inside a catch handler: the what() of the exception being handled, or a fixed text for one
// that is no std::exception. For reporting host code that threw where its caller cannot catch
// it (work on the global queue, completion callbacks).
std::string QENCurrentExceptionDescription();
