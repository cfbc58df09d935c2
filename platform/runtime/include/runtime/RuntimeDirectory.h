// The one directory in which a host's service and its clients meet: sockets, the property file, the
// preferences, the telemetry log.
#pragma once

#include <optional>
#include <string>

#include <android-base/unique_fd.h>

namespace platform {

// Where the directory is, for service and clients alike: $TORV_RUNTIME_DIR; else /run/torv where that
// exists; else $XDG_RUNTIME_DIR/torv; else /tmp/torv-<uid>. Read anew at every call; the directory need not
// exist.
std::string runtimeDirectory();

// For the service: makes the directory (0755, its parents too) where it is missing, and refuses one that
// another user owns. On failure says why, in a sentence that names the directory.
[[nodiscard]] std::optional<std::string> prepareRuntimeDirectory(const std::string& directory);

// The lock that makes a process the one service of a runtime directory: <directory>/lock, held for the life
// of the process. Called again in the same process for the same directory it just says yes. It prepares the
// directory first. Returns why not, or nothing where the lock is held. Thread-safe.
[[nodiscard]] std::optional<std::string> holdServiceLock(const std::string& directory);

}  // namespace platform
