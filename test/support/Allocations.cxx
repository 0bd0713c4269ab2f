#include "test/support/Allocations.h"

#include <sys/resource.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::size_t> allocationCount{0};
std::atomic<std::size_t> allocatedBytes{0};

} // namespace

std::size_t bench::AllocationCount() {
  return allocationCount;
}

std::size_t bench::AllocatedBytes() {
  return allocatedBytes;
}

double bench::PeakMemoryMiB() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_maxrss) / 1024; // Linux counts in KiB
}

void* operator new(std::size_t size) {
  allocationCount.fetch_add(1, std::memory_order_relaxed);
  allocatedBytes.fetch_add(size, std::memory_order_relaxed);
  if (void* memory = std::malloc(size > 0 ? size : 1)) return memory;
  throw std::bad_alloc();
}

void operator delete(void* memory) noexcept {
  std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
