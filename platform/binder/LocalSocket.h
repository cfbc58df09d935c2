// The carrier: stream sockets of the local machine, reached through a directory that may have a long path.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include <sys/types.h>

#include <android-base/unique_fd.h>

#include "Frame.h"

namespace platform::binder {

// Whom the kernel saw connecting.
struct Peer {
  uid_t uid = 0;
  pid_t pid = 0;
};

// The longest file name that a socket may have: sun_path holds 107 characters, of which
// "/proc/self/fd/<any int>/" takes 25.
inline constexpr size_t kMaxSocketName = 82;

// A socket listening at `name` in the directory `dirFd`, open to every uid, non-blocking. The name must be
// free. Not valid on failure, errno then says why.
android::base::unique_fd listenAt(int dirFd, const std::string& name);

// A socket connected to `name` in the directory `dirFd`. Where `wait` is false a listener that takes no
// more connections at present counts as a failure with EAGAIN. Not valid on failure, errno says why.
android::base::unique_fd connectTo(int dirFd, const std::string& name, bool wait);

// The next connection of a listener, non-blocking; not valid where there is none, errno says why.
android::base::unique_fd acceptFrom(int listener);

Peer peerOf(int socket);

// Sends from byte `offset` on of a frame, the header's bytes first. `flags` are sendmsg's; a closed peer
// gives EPIPE and no signal. Returns the bytes that were taken, or -1 with errno.
ssize_t sendFrame(int socket, const FrameHeader& header, const uint8_t* payload, size_t offset, int flags);

}  // namespace platform::binder
