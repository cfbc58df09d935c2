#include "runtime/RuntimeDirectory.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <system_error>
#include <utility>

#include <sys/stat.h>
#include <unistd.h>

#include "base/Mutex.h"
#include "runtime/Files.h"

namespace platform {

namespace fs = std::filesystem;
using android::base::ErrnoError;
using android::base::Error;
using android::base::Result;
using android::base::unique_fd;

namespace {

struct HeldLocks {
  Torv::Base::Mutex mutex;
  std::map<std::string, unique_fd> byDirectory GUARDED_BY(mutex);
};

// Versions before this one made lock files that every user could open.
void closeLockFilesToOthers(const std::string& directory) {
  std::error_code error;
  for (fs::directory_iterator entry(directory, error), end; !error && entry != end; entry.increment(error)) {
    if (entry->path().filename() != "lock" && entry->path().extension() != ".lock") continue;
    std::error_code ignored;
    fs::permissions(entry->path(), fs::perms::owner_read | fs::perms::owner_write,
                    fs::perm_options::replace | fs::perm_options::nofollow, ignored);
  }
}

}  // namespace

std::string runtimeDirectory() {
  if (const char* named = getenv("TORV_RUNTIME_DIR"); named != nullptr && *named != '\0') return named;
  std::error_code ignored;
  if (fs::is_directory("/run/torv", ignored)) return "/run/torv";
  if (const char* user = getenv("XDG_RUNTIME_DIR"); user != nullptr && *user != '\0') {
    return std::string(user) + "/torv";
  }
  return "/tmp/torv-" + std::to_string(getuid());
}

Result<void> prepareRuntimeDirectory(const std::string& directory) {
  constexpr mode_t kEnteredByAll = 0755;
  std::error_code ignored;  // mkdir() says what is wrong
  fs::create_directories(fs::path(directory).parent_path(), ignored);
  if (mkdir(directory.c_str(), kEnteredByAll) == 0) {
    // The umask has taken bits away, but clients of all users look up services here.
    if (chmod(directory.c_str(), kEnteredByAll) != 0)
      return ErrnoError() << "cannot open " << directory << " to others";
  } else if (errno != EEXIST) {
    return ErrnoError() << "cannot make the runtime directory " << directory;
  }
  struct stat status {};
  if (lstat(directory.c_str(), &status) != 0) return ErrnoError() << "cannot look at " << directory;
  if (!S_ISDIR(status.st_mode))
    return Error() << "the runtime directory " << directory << " is not a directory";
  if (status.st_uid != getuid()) {
    return Error() << "the runtime directory " << directory << " belongs to uid " << status.st_uid
                   << ", not to uid " << getuid();
  }
  return {};
}

Result<void> holdServiceLock(const std::string& directory) {
  // Never destroyed: closing the descriptors would end the locks before the process ends.
  static auto& held = *new HeldLocks();
  const Torv::Base::LockGuard guard(held.mutex);
  if (held.byDirectory.count(directory) != 0) return {};
  if (auto prepared = prepareRuntimeDirectory(directory); !prepared.ok()) return prepared;
  closeLockFilesToOthers(directory);
  Result<unique_fd> lock = tryLockFile(directory + "/lock");
  if (!lock.ok()) {
    if (lock.error().code() == EWOULDBLOCK)
      return Error() << "another service holds " << directory << "/lock";
    return lock.error();
  }
  held.byDirectory.emplace(directory, std::move(*lock));
  return {};
}

}  // namespace platform
