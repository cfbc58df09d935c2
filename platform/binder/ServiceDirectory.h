// Where services of a runtime directory are found: one socket for each in <runtime>/binder, named as the
// service with every "/" and a leading "." percent-encoded. Only the process that holds the lock of the
// runtime directory publishes there.
#pragma once

#include <string>
#include <vector>

#include <android-base/result.h>

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

}  // namespace platform::binder
