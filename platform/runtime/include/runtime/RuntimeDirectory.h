// The one directory in which a host's service and its clients meet: sockets, the property file, the
// preferences, the telemetry log.
#pragma once

#include <string>

#include <android-base/result.h>

namespace platform {

// Returns the path of the directory, the same for the service and for its clients: $TORV_RUNTIME_DIR; else
// /run/torv if that exists; else $XDG_RUNTIME_DIR/torv; else /tmp/torv-<uid>. The environment is read at
// every call. The directory need not exist. Thread-safe unless somebody changes the environment.
std::string runtimeDirectory();

// Makes the directory (mode 0755) and its parents if they are missing. Returns an error that names the
// directory if it cannot be made, is no directory (a link to one is none), or belongs to another user.
[[nodiscard]] android::base::Result<void> prepareRuntimeDirectory(const std::string& directory);

// Makes this process the one service of a runtime directory: takes the lock <directory>/lock, and keeps it
// until the process ends. A service calls it before it removes or binds any socket there. Prepares the
// directory, and gives existing lock files the mode 0600 (see lockFile()). Returns an error that names the
// path if another process holds the lock, or if a step fails. If this process holds the lock already, does
// nothing. Thread-safe.
[[nodiscard]] android::base::Result<void> holdServiceLock(const std::string& directory);

}  // namespace platform
