// Where services of a runtime directory are found: one socket each in <runtime>/binder, named as the service
// with "/" and a leading "." percent-encoded.
//
// Several processes of the directory's owner may publish services there. Publishing holds <runtime>/binder/
// .lock for as long as it looks and binds: a socket that nobody listens to is replaced, one with a live
// listener never is. A socket appears under its name only when it already listens.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include <time.h>

#include <sys/types.h>

#include <android-base/unique_fd.h>
#include <utils/Errors.h>

namespace platform::binder {

struct ServiceAddress {
  std::string directory;  // <runtime>/binder
  std::string file;       // the encoded name

  std::string path() const { return directory + "/" + file; }
};

// Which of the servers that may come and go at one address. Kept by clients, so that a proxy of a dead server
// does not talk to its successor.
struct ServiceIdentity {
  dev_t device = 0;
  ino_t inode = 0;
  timespec changed{};

  bool operator==(const ServiceIdentity& other) const;
};

// The address of `name` in today's runtime directory, or nothing where the name is not one to 127 letters,
// digits and "_./-", or is too long for a socket.
std::optional<ServiceAddress> addressOf(const std::string& name);

struct Publication {
  android::status_t status;
  std::string error;  // a sentence, where status is not OK
  android::base::unique_fd listener;
};
// Puts a listening socket at the address, making the directories on the way. ALREADY_EXISTS where a live
// server has it; PERMISSION_DENIED where the runtime directory is not ours or cannot be written.
Publication publish(const ServiceAddress& address);

struct Contact {
  android::base::unique_fd socket;
  ServiceIdentity identity;
};
// A connection to whoever listens at the address now, or nothing where nobody does. Where `wait` is false and
// the server is too busy to take connections, the socket is not valid.
std::optional<Contact> contact(const ServiceAddress& address, bool wait);

// The names of services with a live server, sorted.
std::vector<std::string> liveServices();

}  // namespace platform::binder
