// What this thread takes from the heap by operator new.
//
// Replaces operator new of the whole program, so AllocationCounter.cpp is a source of the programs
// that want it and part of no library.
#pragma once

#include <cstddef>

namespace rt::fakes {

// How many allocations there were so far.
size_t allocations();

// Bytes that are allocated now, as the heap rounds them up.
size_t liveBytes();

}  // namespace rt::fakes
