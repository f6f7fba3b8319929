// CPU time a process has used so far, in nanoseconds, summed over its threads (the scheduler's
// own account in /proc, finer than the tick counts of /proc/PID/stat); 0 when it cannot be read.
#pragma once

#include <sys/types.h>

#include <cstdint>

namespace bench {
uint64_t processCpuNs(pid_t pid);
}  // namespace bench
