#include "runtime/RuntimeDirectory.h"

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <mutex>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace platform {
namespace {

std::string failure(const std::string& what, const std::string& path) {
  return what + " " + path + ": " + strerror(errno);
}

bool isDirectory(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace

std::string runtimeDirectory() {
  if (const char* named = getenv("TORV_RUNTIME_DIR"); named != nullptr && *named != '\0') return named;
  if (isDirectory("/run/torv")) return "/run/torv";
  if (const char* user = getenv("XDG_RUNTIME_DIR"); user != nullptr && *user != '\0') {
    return std::string(user) + "/torv";
  }
  return "/tmp/torv-" + std::to_string(getuid());
}

std::optional<std::string> prepareRuntimeDirectory(const std::string& directory) {
  std::error_code error;
  const std::filesystem::path parent = std::filesystem::path(directory).parent_path();
  if (!parent.empty()) std::filesystem::create_directories(parent, error);
  if (mkdir(directory.c_str(), 0755) == 0) {
    // The process's umask has no say in who may look up a service.
    if (chmod(directory.c_str(), 0755) != 0) return failure("cannot open to others", directory);
  } else if (errno != EEXIST) {
    return failure("cannot make the runtime directory", directory);
  }
  struct stat status {};
  if (lstat(directory.c_str(), &status) != 0) return failure("cannot look at", directory);
  if (!S_ISDIR(status.st_mode)) return "the runtime directory " + directory + " is not a directory";
  if (status.st_uid != getuid()) {
    return "the runtime directory " + directory + " belongs to uid " + std::to_string(status.st_uid) +
           ", not to uid " + std::to_string(getuid());
  }
  return std::nullopt;
}

std::optional<std::string> holdServiceLock(const std::string& directory) {
  static std::mutex mutex;
  // Never released: the kernel lets go of the locks when the process ends.
  static auto& held = *new std::map<std::string, android::base::unique_fd>();
  std::lock_guard guard(mutex);
  if (held.count(directory) != 0) return std::nullopt;
  if (auto refusal = prepareRuntimeDirectory(directory)) return refusal;
  const std::string path = directory + "/lock";
  android::base::unique_fd fd(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0644));
  if (!fd.ok()) return failure("cannot open", path);
  if (flock(fd.get(), LOCK_EX | LOCK_NB) != 0) {
    if (errno == EWOULDBLOCK) return "another service holds " + path;
    return failure("cannot lock", path);
  }
  held.emplace(directory, std::move(fd));
  return std::nullopt;
}

}  // namespace platform
