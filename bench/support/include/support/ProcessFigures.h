// What /proc tells of a process. Where it tells nothing the program ends: a figure of 0 would pass every
// limit.
#pragma once

#include <cstdint>

#include <sys/types.h>

namespace bench {

// The memory that it shares with nobody and has written to.
long privateDirtyKib(pid_t pid);

// The processor time of all its threads so far, as the scheduler accounts for it.
uint64_t processorNs(pid_t pid);

// How often its threads have gone to sleep so far, and so woken up again.
long sleeps(pid_t pid);

}  // namespace bench
