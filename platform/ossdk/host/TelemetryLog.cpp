#include "ossdkhost/TelemetryLog.h"

#include <cerrno>
#include <cstring>
#include <ctime>

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

int64_t nowMs() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
  return Torv::Base::toMilliseconds(now);
}

std::string pathIn(const std::string& directory) {
  return directory + "/" + TelemetryLog::kName;
}

}  // namespace

// Asking the kernel for the size or the identity of the file costs as much as a write, so both are only known
// from the time when it was opened.
struct TelemetryLog::File {
  const std::string directory;
  const android::base::unique_fd fd;
  const size_t bytesAtOpening;
  const int64_t openedAtMs;
  std::atomic<size_t> appended{0};  // bytes, by this process

  size_t size() const { return bytesAtOpening + appended; }

  bool isRecent() const {
    constexpr int64_t kReopenAfterMs = 50;
    return nowMs() - openedAtMs < kReopenAfterMs && appended < kReopenBytes;
  }
};

bool TelemetryLog::append(const std::string& directory, const std::string& line, bool flush) {
  std::shared_ptr<File> file = fileIn(directory);
  if (file != nullptr && file->size() > 0 && file->size() + line.size() > kMaxBytes) {
    rotate(directory, line.size());
    file = open(directory);
  }
  if (file == nullptr) return fail("cannot open " + pathIn(directory) + ": " + strerror(errno));
  // The first line after a full disk must not continue the torn one.
  if (mTorn && mTorn.exchange(false) && file->size() > 0 && write(file->fd.get(), "\n", 1) != 1) mTorn = true;
  const ssize_t written = TEMP_FAILURE_RETRY(write(file->fd.get(), line.data(), line.size()));
  if (written > 0) file->appended += static_cast<size_t>(written);
  if (written != static_cast<ssize_t>(line.size())) {
    if (written > 0) mTorn = true;
    return fail("cannot write " + pathIn(directory) + ": " + strerror(written < 0 ? errno : ENOSPC));
  }
  if (mFailing) mFailing = false;  // a look costs less than a store, for each line
  return !flush || fdatasync(file->fd.get()) == 0;
}

std::shared_ptr<TelemetryLog::File> TelemetryLog::fileIn(const std::string& directory) {
  {
    const Torv::Base::LockGuard lock(mMutex);
    if (mFile != nullptr && mFile->directory == directory && mFile->isRecent()) return mFile;
  }
  return open(directory);
}

std::shared_ptr<TelemetryLog::File> TelemetryLog::open(const std::string& directory) {
  constexpr int kFlags = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
  android::base::unique_fd fd(::open(pathIn(directory).c_str(), kFlags, 0644));
  struct stat status {};
  if (!fd.ok() || fstat(fd.get(), &status) != 0) return nullptr;
  if (!S_ISREG(status.st_mode)) {
    errno = EINVAL;
    return nullptr;
  }
  const auto size = static_cast<size_t>(status.st_size);
  std::shared_ptr<File> file(new File{directory, std::move(fd), size, nowMs()});
  const Torv::Base::LockGuard lock(mMutex);
  mFile = file;
  return file;
}

void TelemetryLog::rotate(const std::string& directory, size_t lineBytes) {
  const std::string path = pathIn(directory);
  const auto lock = tryLockFile(directory + "/telemetry.lock");
  struct stat status {};
  // Another process may have rotated meanwhile.
  if (stat(path.c_str(), &status) != 0) return;
  if (static_cast<size_t>(status.st_size) + lineBytes <= kMaxBytes) return;
  if (lock.ok() && rename(path.c_str(), (path + ".1").c_str()) == 0) {
    if (const uint64_t putOff = mRotationsPutOff.exchange(0); putOff != 0) {
      __android_log_print(ANDROID_LOG_WARN, kTag, "rotated %s, which was put off %llu times", path.c_str(),
                          static_cast<unsigned long long>(putOff));
    }
  } else if (mRotationsPutOff++ == 0) {
    __android_log_print(ANDROID_LOG_ERROR, kTag, "cannot rotate %s now: %s", path.c_str(),
                        lock.ok() ? strerror(errno) : lock.error().message().c_str());
  }
}

bool TelemetryLog::fail(const std::string& problem) {
  if (!mFailing.exchange(true)) __android_log_print(ANDROID_LOG_ERROR, kTag, "%s", problem.c_str());
  return false;
}

}  // namespace platform
