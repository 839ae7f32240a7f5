#pragma once

#include <cstddef>

// Bytes the program has asked operator new for since it started. Linking QENAllocationCounter.cpp
// replaces the global operator new and delete to count them; each is defined in that file alone,
// out of the compiler's sight at the call sites.
std::size_t QENAllocatedBytes();
