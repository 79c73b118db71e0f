// The calls of the library's functions, each of which it is built to report.
#pragma once

#include <cstdint>

// Begins to count.
void BeginCalls();

// How many there were. Releases what the library left allocated because that is intended, so that a process does not
// grow with every input, and whatever else it leaves is a leak.
std::uint64_t EndCalls();
