// Keeps the service's heap as small as its contents on a host. On a device the platform's allocator does.
#pragma once

#include <cstddef>

namespace platform {

// Sets the allocator's limits for a service process. Call it once, before the process starts threads.
void applyHeapPolicy();

// Tells the policy that about `bytes` were allocated and soon will be free: a fetch, a reply. After 64 KiB,
// one thread waits for a second and then gives free memory back to the system, so that a burst of traffic
// leaves no more than its contents. The thread starts with the first such traffic, and sleeps without a
// time-out while there is none. Costs one atomic addition. Thread-safe.
void noteHeapTraffic(size_t bytes);

}  // namespace platform
