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

#include "base/Clock.h"
#include "runtime/Files.h"

namespace platform {
namespace {

constexpr char kTag[] = "OsSdkTelemetry";

// stat(path) costs more than the write, so it is done this often only. The size comes from the open file;
// that another process has renamed or removed the file is noticed after this time.
constexpr int64_t kLookEveryMs = 50;

int64_t nowMs() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
  return Torv::Base::toMilliseconds(now);
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
  std::atomic<bool> torn = false;      // only a part of its last line was written
  std::atomic<int64_t> seenAtPath{0};  // the last time, by nowMs(), when the path led to this file

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
    // The first line after a full disk must not continue the torn one.
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

// Returns the file that is at its path now, and opens it only if it is another one than last time. Returns
// null and sets errno if that fails.
std::shared_ptr<TelemetryLog::File> TelemetryLog::fileIn(const std::string& directory, size_t* sizeBytes) {
  std::shared_ptr<File> file;
  {
    const Torv::Base::LockGuard lock(mMutex);
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
  const Torv::Base::LockGuard lock(mMutex);
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
    ++mRotationsPutOff;
    complain("cannot rotate " + path + " now: " + lock.error().message());
  } else if (rename(path.c_str(), (path + ".1").c_str()) != 0) {
    complain("cannot rotate " + path + ": " + strerror(errno));
  } else if (const uint64_t putOff = mRotationsPutOff.exchange(0); putOff != 0) {
    __android_log_print(ANDROID_LOG_WARN, kTag, "rotated %s, which others had put off %llu times",
                        path.c_str(), static_cast<unsigned long long>(putOff));
  }
}

void TelemetryLog::complain(const std::string& message) {
  if (mComplaint.isNew(message)) __android_log_print(ANDROID_LOG_ERROR, kTag, "%s", message.c_str());
}

}  // namespace platform
