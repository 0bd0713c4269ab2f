#pragma once

#include <cstddef>

/// Memory figures for benchmarks. Allocations.cxx replaces operator new and delete of the whole
/// program, libraries included.
namespace bench {

/// Returns the number of operator new calls of the program so far.
std::size_t AllocationCount();

/// Returns the bytes requested from operator new so far; what was freed stays counted.
std::size_t AllocatedBytes();

/// Returns the largest memory the process has held so far [MiB].
double PeakMemoryMiB();

} // namespace bench
