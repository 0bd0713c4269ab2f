#include "util/AllowedThreads.h"

#include <sched.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <thread>

namespace util {

namespace {

unsigned Processors() {
  cpu_set_t allowed;
  if (sched_getaffinity(0, sizeof allowed, &allowed) == 0)
    return static_cast<unsigned>(CPU_COUNT(&allowed));
  return std::thread::hardware_concurrency(); // more processors than the set has places
}

/// Returns 0 where there is no batch system, or nothing that is a number.
unsigned OfBatchSystem() {
  const char* text = std::getenv("SLURM_CPUS_PER_TASK");
  unsigned threads = 0;
  if (text) std::from_chars(text, text + std::strlen(text), threads);
  return threads;
}

} // namespace

unsigned AllowedThreads() {
  const unsigned processors = std::max(1u, Processors());
  const unsigned given = OfBatchSystem();
  return given == 0 ? processors : std::min(given, processors);
}

} // namespace util
