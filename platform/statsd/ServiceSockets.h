#pragma once

#include <string>

#include <android-base/result.h>
#include <android-base/unique_fd.h>

namespace libstatsd {

// What statsd receives on, bound in a runtime directory. Both are non-blocking.
struct ServiceSockets {
  android::base::unique_fd atoms;   // datagrams, with their senders' credentials; write-only for all
  android::base::unique_fd status;  // a listening stream socket, for all
};

// Binds both in the place of what a dead service left; the caller holds the directory's service lock. Returns
// an error that names the socket if that fails.
[[nodiscard]] android::base::Result<ServiceSockets> bindServiceSockets(const std::string& directory);

// How many datagrams the kernel queues on a socket bound now: its setting, and one more.
size_t kernelQueueLength();

}  // namespace libstatsd
