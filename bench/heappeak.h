#pragma once

// The heap a piece of code needs at its peak. The program that links heappeak.cpp answers every
// malloc, calloc, realloc and free itself (through glibc's own allocator), so Qt's containers
// and the C++ allocator are counted as well as anything else.

#include <cstddef>

namespace qarvo::bench {

// Starts counting from zero; allocations and frees before this call are not seen.
void startHeapCount();
// Stops counting; returns the most heap that was in use at once since startHeapCount(), beyond
// what was in use when it was called.
std::size_t stopHeapCount();

} // namespace qarvo::bench
