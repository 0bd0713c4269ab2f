#pragma once

#include <sys/resource.h>

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

/// Memory figures for benchmarks. This header replaces operator new and delete of the whole
/// program, libraries included: include it in exactly one source of a benchmark program.
namespace bench {

inline std::atomic<std::size_t> allocationCount{0};
inline std::atomic<std::size_t> allocatedBytes{0};

/// Returns the number of operator new calls of the program so far.
inline std::size_t AllocationCount() {
  return allocationCount;
}

/// Returns the bytes requested from operator new so far; what was freed stays counted.
inline std::size_t AllocatedBytes() {
  return allocatedBytes;
}

/// Returns the largest memory the process has held so far [MiB].
inline double PeakMemoryMiB() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_maxrss) / 1024; // Linux counts in KiB
}

} // namespace bench

[[gnu::noinline]] void* operator new(std::size_t size) {
  bench::allocationCount.fetch_add(1, std::memory_order_relaxed);
  bench::allocatedBytes.fetch_add(size, std::memory_order_relaxed);
  if (void* memory = std::malloc(size > 0 ? size : 1)) return memory;
  throw std::bad_alloc();
}

[[gnu::noinline]] void operator delete(void* memory) noexcept {
  std::free(memory);
}

[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
