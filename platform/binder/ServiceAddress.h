// Where services of a runtime directory are found: one socket for each in <runtime>/binder, named as the
// service with every "/" and a leading "." percent-encoded. Only the process that holds the lock of the
// runtime directory publishes there.
#pragma once

#include <string>
#include <vector>

#include <sys/types.h>

#include <android-base/result.h>
#include <android-base/unique_fd.h>

namespace platform::binder {

struct ServiceAddress {
  std::string directory;  // <runtime>/binder
  std::string file;       // the encoded name

  std::string path() const { return directory + "/" + file; }
};

// Returns the address of `name` in today's runtime directory. Error: the name is not one to 127 letters,
// digits and "_./-", or is too long for a socket.
android::base::Result<ServiceAddress> addressOf(const std::string& name);

// Returns the names of all sockets in the directory, sorted, whether somebody listens there or not.
std::vector<std::string> publishedNames();

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
