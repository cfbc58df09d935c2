#include "ossdkhost/PreferencesFile.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <map>
#include <utility>

#include <android-base/unique_fd.h>
#include <android/log.h>
#include <fcntl.h>
#include <json/writer.h>

#include "base/Files.h"
#include "base/Json.h"
#include "runtime/Files.h"

namespace platform {

using android::base::Error;
using android::base::Result;

namespace {

const std::shared_ptr<const Json::Value>& noValues() {
  static const auto values = std::make_shared<const Json::Value>(Json::objectValue);
  return values;
}

// File times advance with the kernel's tick, 10 ms at the longest: a file that was changed this recently may
// change again and look the same.
bool isSettled(const timespec& changed) {
  constexpr int64_t kTickNs = 20'000'000;
  timespec now{};
  clock_gettime(CLOCK_REALTIME_COARSE, &now);
  return (now.tv_sec - changed.tv_sec) * 1'000'000'000 + (now.tv_nsec - changed.tv_nsec) > kTickNs;
}

bool sameTime(const timespec& a, const timespec& b) {
  return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

// One member a line; bytes that are not UTF-8 stay as they are.
std::string toText(const Json::Value& values) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "  ";
  builder["emitUTF8"] = true;
  return Json::writeString(builder, values) + "\n";
}

}  // namespace

struct PreferencesFile::Reading {
  enum class Kind { Values, Missing, Damaged, Unreadable };

  Kind kind = Kind::Unreadable;
  Json::Value values{Json::objectValue};
  std::string problem;  // what is wrong with a damaged or unreadable file
  Identity identity;
  bool settled = false;
};

PreferencesFile::Identity PreferencesFile::Identity::of(const struct stat& status) {
  return {status.st_dev, status.st_ino, status.st_size, status.st_mtim, status.st_ctim};
}

bool PreferencesFile::Identity::operator==(const Identity& other) const {
  return device == other.device && inode == other.inode && size == other.size &&
         sameTime(modified, other.modified) && sameTime(changed, other.changed);
}

std::shared_ptr<PreferencesFile> PreferencesFile::of(const std::string& directory) {
  static std::mutex mutex;
  // Never destroyed: threads may look up until the process is gone.
  static auto& files = *new std::map<std::string, std::shared_ptr<PreferencesFile>>();
  std::lock_guard lock(mutex);
  std::shared_ptr<PreferencesFile>& file = files[directory];
  if (file == nullptr) file = std::make_shared<PreferencesFile>(directory);
  return file;
}

PreferencesFile::PreferencesFile(const std::string& directory)
    : mPath(directory + "/" + kName), mLockPath(directory + "/preferences.lock") {}

std::shared_ptr<const Json::Value> PreferencesFile::read() {
  struct stat status {};
  if (stat(mPath.c_str(), &status) != 0) {
    if (errno == ENOENT) {
      mComplaint.clear();
      return noValues();
    }
  } else {
    std::lock_guard lock(mMutex);
    if (mCached.values != nullptr && mCached.identity == Identity::of(status)) return mCached.values;
  }
  Reading reading = readFile();
  switch (reading.kind) {
    case Reading::Kind::Unreadable:
      complain(mPath + ": " + reading.problem);
      return nullptr;
    case Reading::Kind::Damaged:
      setAside(reading);
      break;
    case Reading::Kind::Values:
    case Reading::Kind::Missing:
      mComplaint.clear();
      break;
  }
  auto values = std::make_shared<const Json::Value>(std::move(reading.values));
  if (reading.settled) {
    std::lock_guard lock(mMutex);
    mCached = {reading.identity, values};
  }
  return values;
}

Result<void> PreferencesFile::update(const std::function<void(Json::Value&)>& change) {
  auto lock = lockFile(mLockPath);
  if (!lock.ok()) return lock.error();
  Reading reading = readFile();
  if (reading.kind == Reading::Kind::Unreadable) return Error() << mPath << ": " << reading.problem;
  if (reading.kind == Reading::Kind::Damaged) setAsideLocked(reading);
  change(reading.values);
  const std::string text = toText(reading.values);
  const auto reread = Torv::Base::parseJson(text);
  if (!reread.ok()) return Error() << mPath << " would be " << reread.error().message();
  return replaceFile(mPath, text);
}

PreferencesFile::Reading PreferencesFile::readFile() const {
  Reading reading;
  // Not to wait for a writer where somebody has put a named pipe here.
  const android::base::unique_fd fd(open(mPath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat status {};
  if (!fd.ok() || fstat(fd.get(), &status) != 0) {
    reading.kind = errno == ENOENT ? Reading::Kind::Missing : Reading::Kind::Unreadable;
    reading.problem = strerror(errno);
    return reading;
  }
  if (!S_ISREG(status.st_mode)) {
    reading.problem = "not a regular file";
    return reading;
  }
  reading.identity = Identity::of(status);
  reading.settled = isSettled(status.st_ctim);
  const auto text = Torv::Base::readToEnd(fd.get(), Torv::Base::kMaxJsonBytes);
  if (!text.ok()) {
    if (text.error().code() == EFBIG) reading.kind = Reading::Kind::Damaged;
    reading.problem = text.error().message();
    return reading;
  }
  reading.kind = Reading::Kind::Values;
  if (text->find_first_not_of(" \t\r\n") == std::string::npos) return reading;
  auto values = Torv::Base::parseJson(*text);
  if (values.ok() && values->isObject()) {
    reading.values = std::move(*values);
  } else {
    reading.kind = Reading::Kind::Damaged;
    reading.problem = values.ok() ? "not a JSON object" : values.error().message();
  }
  return reading;
}

void PreferencesFile::setAside(const Reading& damaged) {
  // A reader does not wait: whoever holds the lock is about to replace the file.
  auto lock = tryLockFile(mLockPath);
  if (lock.ok()) {
    setAsideLocked(damaged);
  } else {
    complain(mPath + " is damaged (" + damaged.problem +
             ") and cannot be set aside: " + lock.error().message());
  }
}

void PreferencesFile::setAsideLocked(const Reading& damaged) {
  struct stat status {};
  // Somebody has put another file in its place, or has set it aside already.
  if (stat(mPath.c_str(), &status) != 0 || !(Identity::of(status) == damaged.identity)) return;
  const std::string aside = mPath + ".corrupt";
  const std::string what = mPath + " is damaged (" + damaged.problem + ") and ";
  if (rename(mPath.c_str(), aside.c_str()) == 0) {
    __android_log_write(ANDROID_LOG_ERROR, kLogTag, (what + "was set aside as " + aside).c_str());
  } else {
    complain(what + "cannot be set aside: " + strerror(errno));
  }
}

void PreferencesFile::complain(const std::string& message) {
  if (mComplaint.isNew(message)) __android_log_write(ANDROID_LOG_ERROR, kLogTag, message.c_str());
}

}  // namespace platform
