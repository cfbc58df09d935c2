// Figures of a process from /proc. Each function ends the program if the figure is not there, because 0 would
// pass every limit.
#pragma once

#include <cstdint>

#include <sys/types.h>

namespace bench {

// Returns the memory that the process has written to and shares with nobody.
long privateDirtyKib(pid_t pid);

// Returns the processor time of all threads that the process has now, as the kernel's scheduler counts it.
uint64_t processorNs(pid_t pid);

// Returns how often the threads that the process has now have gone to sleep, each time to be woken up again.
long sleeps(pid_t pid);

}  // namespace bench
