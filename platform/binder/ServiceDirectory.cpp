#include "ServiceDirectory.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "LocalSocket.h"
#include "runtime/Files.h"
#include "runtime/RuntimeDirectory.h"

namespace platform::binder {
namespace {

using android::base::unique_fd;

constexpr size_t kMaxName = 127;
constexpr char kNameCharacters[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_./-";
constexpr char kSlash[] = "%2F";
constexpr char kDot[] = "%2E";
constexpr char kLock[] = ".lock";
constexpr char kUnfinished[] = ".new";

std::string servicesDirectory() {
  return runtimeDirectory() + "/binder";
}

std::string encode(const std::string& name) {
  std::string file;
  for (const char c : name) {
    if (c == '/') {
      file += kSlash;
    } else if (c == '.' && file.empty()) {
      file += kDot;
    } else {
      file += c;
    }
  }
  return file;
}

std::string decode(const std::string& file) {
  std::string name;
  for (size_t i = 0; i < file.size(); ++i) {
    const std::string code = file.substr(i, strlen(kSlash));
    if (code == kSlash || code == kDot) {
      name += code == kSlash ? '/' : '.';
      i += code.size() - 1;
    } else {
      name += file[i];
    }
  }
  return name;
}

unique_fd openDirectory(const std::string& path) {
  return unique_fd(open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
}

std::optional<ServiceIdentity> identityOf(int dirFd, const std::string& file) {
  struct stat status {};
  if (fstatat(dirFd, file.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return std::nullopt;
  return ServiceIdentity{status.st_dev, status.st_ino, status.st_ctim};
}

bool hasLiveListener(int dirFd, const std::string& file) {
  return connectTo(dirFd, file, /*wait=*/false).ok() || errno == EAGAIN;
}

Publication failed(android::status_t status, std::string error) {
  return {status, std::move(error), {}};
}

Publication failedWithErrno(const std::string& what, const std::string& path) {
  const int error = errno;
  return failed(-error, what + " " + path + ": " + strerror(error));
}

// Makes <runtime>/binder.
android::base::Result<void> prepare(const std::string& directory) {
  auto prepared = prepareRuntimeDirectory(std::filesystem::path(directory).parent_path());
  if (!prepared.ok()) return prepared;
  return prepareRuntimeDirectory(directory);
}

}  // namespace

bool ServiceIdentity::operator==(const ServiceIdentity& other) const {
  return device == other.device && inode == other.inode && changed.tv_sec == other.changed.tv_sec &&
         changed.tv_nsec == other.changed.tv_nsec;
}

std::optional<ServiceAddress> addressOf(const std::string& name) {
  if (name.empty() || name.size() > kMaxName) return std::nullopt;
  if (name.find_first_not_of(kNameCharacters) != std::string::npos) return std::nullopt;
  ServiceAddress address{servicesDirectory(), encode(name)};
  if (address.file.size() > kMaxSocketName) return std::nullopt;
  return address;
}

Publication publish(const ServiceAddress& address) {
  if (auto prepared = prepare(address.directory); !prepared.ok()) {
    return failed(android::PERMISSION_DENIED, prepared.error().message());
  }
  const auto lock = lockFile(address.directory + "/" + kLock);
  if (!lock.ok()) return failed(android::PERMISSION_DENIED, lock.error().message());
  const unique_fd directory = openDirectory(address.directory);
  if (!directory.ok()) return failedWithErrno("cannot open", address.directory);
  if (hasLiveListener(directory.get(), address.file)) {
    return failed(android::ALREADY_EXISTS, "a live server listens at " + address.path());
  }
  unlinkat(directory.get(), kUnfinished, 0);  // of a publisher that was killed
  unique_fd listener = listenAt(directory.get(), kUnfinished);
  if (!listener.ok()) return failedWithErrno("cannot listen in", address.directory);
  if (renameat(directory.get(), kUnfinished, directory.get(), address.file.c_str()) != 0) {
    return failedWithErrno("cannot listen at", address.path());
  }
  return {android::OK, {}, std::move(listener)};
}

std::optional<Contact> contact(const ServiceAddress& address, bool wait) {
  const unique_fd directory = openDirectory(address.directory);
  if (!directory.ok()) return std::nullopt;
  // A server that is replaced while we look is looked at again.
  for (;;) {
    const auto before = identityOf(directory.get(), address.file);
    if (!before) return std::nullopt;
    unique_fd socket = connectTo(directory.get(), address.file, wait);
    if (!socket.ok() && errno != EAGAIN) return std::nullopt;
    const auto after = identityOf(directory.get(), address.file);
    if (after && *after == *before) return Contact{std::move(socket), *before};
  }
}

std::vector<std::string> liveServices() {
  std::vector<std::string> names;
  const std::string path = servicesDirectory();
  const unique_fd directory = openDirectory(path);
  std::error_code error;
  for (std::filesystem::directory_iterator entry(path, error), end; !error && entry != end;
       entry.increment(error)) {
    const std::string file = entry->path().filename();
    if (file.front() == '.' || !hasLiveListener(directory.get(), file)) continue;
    names.push_back(decode(file));
  }
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace platform::binder
