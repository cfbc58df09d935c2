#pragma once

#include <string>

#include <android-base/result.h>
#include <android-base/unique_fd.h>

namespace libstatsd {

// Names of statsd's sockets in the runtime directory.
inline constexpr char kAtomSocket[] = "statsdw";
inline constexpr char kStatusSocket[] = "statsd-status";

// What statsd receives on. Both sockets are non-blocking.
struct ServiceSockets {
  android::base::unique_fd atoms;   // datagrams with their senders' credentials; every user may write
  android::base::unique_fd status;  // a listening stream socket; every user may connect
};

// Binds both in `directory`, and replaces what a dead service left there; the caller holds the directory's
// service lock. Returns an error that names the socket if that fails.
[[nodiscard]] android::base::Result<ServiceSockets> bindServiceSockets(const std::string& directory);

// How many datagrams the kernel queues on a socket that is bound now.
size_t kernelQueueLength();

}  // namespace libstatsd
