#pragma once

#include <sys/types.h>

#include <android-base/result.h>
#include <android-base/unique_fd.h>

#include "ServiceDirectory.h"

namespace platform::binder {

// The other end of a connection, as the kernel saw it: for the server the process that connected, for a
// client the process that listens.
struct Peer {
  uid_t uid = static_cast<uid_t>(-1);  // a uid that nobody trusts
  pid_t pid = 0;
};
Peer peerOf(int socket);

// Returns a blocking socket that listens at the address, open to every uid. What was there before is removed:
// the caller holds the lock of the runtime directory. Makes the directory if it is missing.
android::base::Result<android::base::unique_fd> listenAt(const ServiceAddress& address);

// Returns a blocking socket that is connected to the address. Errors: EAGAIN if the server has not accepted
// within kConnectPatience, otherwise nobody listens there.
android::base::Result<android::base::unique_fd> connectTo(const ServiceAddress& address);

}  // namespace platform::binder
