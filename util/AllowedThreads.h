#pragma once

namespace util {

/// Returns how many threads this process may keep busy, at least 1: the processors that it may run
/// on (sched_getaffinity), or fewer where a batch system has given it fewer (SLURM_CPUS_PER_TASK).
unsigned AllowedThreads();

} // namespace util
