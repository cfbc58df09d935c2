#include "ossdkhost/TelemetryLog.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string_view>
#include <utility>

#include <android-base/unique_fd.h>
#include <android/log.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "runtime/Files.h"

namespace platform {
namespace {

constexpr char kTag[] = "OsSdkTelemetry";

// A look at the path costs more than the write. That the file has grown to be rotated the open file says
// itself; that an outsider has renamed or removed it goes unnoticed for this long.
constexpr int64_t kLookEveryMs = 50;

int64_t nowMs() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
  return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

std::string pathIn(const std::string& directory) {
  return directory + "/" + TelemetryLog::kName;
}

}  // namespace

struct TelemetryLog::File {
  std::string directory;
  android::base::unique_fd fd;
  dev_t device = 0;
  ino_t inode = 0;
  std::atomic<bool> torn = false;      // its last line is a part of one
  std::atomic<int64_t> seenAtPath{0};  // when it last was, in nowMs()

  // Whether a look at the path can be spared.
  bool isRecent() const { return nowMs() - seenAtPath < kLookEveryMs; }
};

bool TelemetryLog::append(const std::string& directory, const std::string& line, bool flush) {
  size_t sizeBytes = 0;
  std::shared_ptr<File> file = fileIn(directory, &sizeBytes);
  if (file != nullptr && sizeBytes > 0 && sizeBytes + line.size() > kMaxBytes) {
    rotate(directory, line.size());
    file->seenAtPath = 0;
    file = fileIn(directory, &sizeBytes);
  }
  if (file == nullptr) {
    complain("cannot open " + pathIn(directory) + ": " + strerror(errno));
    return false;
  }
  std::string_view text = line;
  std::string apart;
  if (file->torn.exchange(false)) {
    // The rest of a disk that was full must not swallow the first line after it.
    apart = "\n" + line;
    text = apart;
  }
  const ssize_t written = TEMP_FAILURE_RETRY(write(file->fd.get(), text.data(), text.size()));
  if (written != static_cast<ssize_t>(text.size())) {
    complain("cannot write " + pathIn(directory) + ": " + strerror(written < 0 ? errno : ENOSPC));
    file->torn = written > 0;
    return false;
  }
  mComplaint.clear();
  return !flush || fdatasync(file->fd.get()) == 0;
}

// The file that is at its path now, opened anew only where it is another one than last time.
std::shared_ptr<TelemetryLog::File> TelemetryLog::fileIn(const std::string& directory, size_t* sizeBytes) {
  std::shared_ptr<File> file;
  {
    std::lock_guard lock(mMutex);
    if (mFile != nullptr && mFile->directory == directory) file = mFile;
  }
  if (file != nullptr && file->isRecent()) {
    *sizeBytes = static_cast<size_t>(lseek(file->fd.get(), 0, SEEK_END));
    return file;
  }
  struct stat status {};
  const bool there = stat(pathIn(directory).c_str(), &status) == 0;
  *sizeBytes = there ? static_cast<size_t>(status.st_size) : 0;
  if (there && file != nullptr && file->device == status.st_dev && file->inode == status.st_ino) {
    file->seenAtPath = nowMs();
    return file;
  }
  file = open(directory);
  std::lock_guard lock(mMutex);
  mFile = file;
  return file;
}

std::shared_ptr<TelemetryLog::File> TelemetryLog::open(const std::string& directory) {
  auto file = std::make_shared<File>();
  file->directory = directory;
  constexpr int kFlags = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
  file->fd.reset(::open(pathIn(directory).c_str(), kFlags, 0644));
  struct stat status {};
  if (!file->fd.ok() || fstat(file->fd.get(), &status) != 0) return nullptr;
  if (!S_ISREG(status.st_mode)) {
    errno = EINVAL;
    return nullptr;
  }
  file->device = status.st_dev;
  file->inode = status.st_ino;
  file->seenAtPath = nowMs();
  return file;
}

void TelemetryLog::rotate(const std::string& directory, size_t lineBytes) {
  const std::string path = pathIn(directory);
  const auto lock = tryLockFile(directory + "/telemetry.lock");
  struct stat status {};
  // Another process may have rotated meanwhile.
  if (stat(path.c_str(), &status) != 0) return;
  if (static_cast<size_t>(status.st_size) + lineBytes <= kMaxBytes) return;
  if (!lock.ok()) {
    if (lock.error().code() != EWOULDBLOCK) complain(lock.error().message());
  } else if (rename(path.c_str(), (path + ".1").c_str()) != 0) {
    complain("cannot rotate " + path + ": " + strerror(errno));
  }
}

void TelemetryLog::complain(const std::string& message) {
  if (mComplaint.isNew(message)) __android_log_write(ANDROID_LOG_ERROR, kTag, message.c_str());
}

}  // namespace platform
