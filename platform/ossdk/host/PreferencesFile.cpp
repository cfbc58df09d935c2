#include "ossdkhost/PreferencesFile.h"

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <map>
#include <utility>

#include <android/log.h>
#include <json/writer.h>

#include "base/Clock.h"
#include "base/Files.h"
#include "base/Json.h"
#include "runtime/Files.h"

namespace platform {

using android::base::ErrnoError;
using android::base::Error;
using android::base::Result;
using android::base::unique_fd;
using Torv::Base::LockGuard;
using Torv::Base::toNanoseconds;

namespace {

struct Files {
  Torv::Base::Mutex mutex;
  std::map<std::string, PreferencesFile> byDirectory GUARDED_BY(mutex);
};

// File times advance with the kernel's tick, of 10 ms at most: a file that was changed this recently may
// change again and look the same.
bool isLongAgo(const timespec& changed) {
  constexpr int64_t kTickNs = 20'000'000;
  timespec now{};
  clock_gettime(CLOCK_REALTIME_COARSE, &now);
  return toNanoseconds(now) - toNanoseconds(changed) > kTickNs;
}

Result<Json::Value> parseObject(const std::string& text) {
  if (text.find_first_not_of(" \t\r\n") == std::string::npos) return Json::Value(Json::objectValue);
  auto values = Torv::Base::parseJson(text);
  if (values.ok() && !values->isObject()) return Error() << "not a JSON object";
  return values;
}

// Returns one member a line. Bytes that are not UTF-8 stay as they are.
std::string toText(const Json::Value& values) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "  ";
  builder["emitUTF8"] = true;
  return Json::writeString(builder, values) + "\n";
}

}  // namespace

PreferencesFile& PreferencesFile::of(const std::string& directory) {
  static auto& files = *new Files();
  static std::atomic<PreferencesFile*> latest{nullptr};
  PreferencesFile* file = latest;
  if (file == nullptr || file->mDirectory != directory) {
    const LockGuard lock(files.mutex);
    file = &files.byDirectory.try_emplace(directory, directory).first->second;
    latest = file;
  }
  return *file;
}

PreferencesFile::PreferencesFile(const std::string& directory)
    : mDirectory(directory), mPath(directory + "/" + kName), mLockPath(directory + "/preferences.lock") {}

std::shared_ptr<const Json::Value> PreferencesFile::read() {
  struct stat status {};
  if (stat(mPath.c_str(), &status) == 0) {
    const LockGuard lock(mMutex);
    if (mCached.identity == identityOf(status)) return mCached.values;
  }
  const Result<Reading> reading = readFile();
  if (!reading.ok()) {
    complain(reading.error().message());
    return nullptr;
  }
  if (reading->damage.empty()) {
    mHasComplained = false;
  } else {
    // A reader does not wait: if another process holds the lock, that one is about to replace the file.
    setAside(*reading, tryLockFile(mLockPath));
  }
  if (reading->isSettled) {
    const LockGuard lock(mMutex);
    mCached = *reading;
  }
  return reading->values;
}

Result<void> PreferencesFile::update(const std::function<void(Json::Value&)>& change) {
  auto lock = lockFile(mLockPath);
  if (!lock.ok()) return lock.error();
  Result<Reading> reading = readFile();
  if (!reading.ok()) return reading.error();
  if (!reading->damage.empty()) setAside(*reading, lock);
  Json::Value values = *reading->values;
  change(values);
  const std::string text = toText(values);
  // What is stored must be readable again: an object still, and within the limits.
  if (const auto reread = parseObject(text); !reread.ok()) {
    return Error() << mPath << " would be " << reread.error().message();
  }
  return replaceFile(mPath, text);
}

PreferencesFile::Identity PreferencesFile::identityOf(const struct stat& status) {
  return {static_cast<int64_t>(status.st_dev), static_cast<int64_t>(status.st_ino), status.st_size,
          toNanoseconds(status.st_mtim), toNanoseconds(status.st_ctim)};
}

Result<PreferencesFile::Reading> PreferencesFile::readFile() const {
  Reading reading;
  auto fd = Torv::Base::openForReading(mPath);
  if (!fd.ok() && fd.error().code() == ENOENT) return reading;
  if (!fd.ok()) return fd.error();
  struct stat status {};
  if (fstat(fd->get(), &status) != 0) return ErrnoError() << "cannot look at " << mPath;
  reading.identity = identityOf(status);
  reading.isSettled = isLongAgo(status.st_ctim);
  const auto text = Torv::Base::readToEnd(fd->get(), Torv::Base::kMaxJsonBytes);
  if (!text.ok() && text.error().code() != EFBIG) return Error() << mPath << ": " << text.error();
  auto values = text.ok() ? parseObject(*text) : Result<Json::Value>(Error() << text.error().message());
  if (values.ok()) {
    reading.values = std::make_shared<const Json::Value>(*std::move(values));
  } else {
    reading.damage = values.error().message();
  }
  return reading;
}

void PreferencesFile::setAside(const Reading& damaged, const Result<unique_fd>& lock) {
  const std::string isDamaged = mPath + " is damaged (" + damaged.damage + ") and ";
  if (!lock.ok()) return complain(isDamaged + "cannot be set aside: " + lock.error().message());
  struct stat status {};
  // Another process may have set it aside already, or put another file in its place.
  if (stat(mPath.c_str(), &status) != 0 || identityOf(status) != damaged.identity) return;
  const std::string aside = mPath + ".corrupt";
  if (rename(mPath.c_str(), aside.c_str()) != 0) {
    return complain(isDamaged + "cannot be set aside: " + ErrnoError().str());
  }
  __android_log_print(ANDROID_LOG_ERROR, kLogTag, "%swas set aside as %s", isDamaged.c_str(), aside.c_str());
}

void PreferencesFile::complain(const std::string& problem) {
  if (mHasComplained.exchange(true)) return;
  __android_log_print(ANDROID_LOG_ERROR, kLogTag, "%s", problem.c_str());
}

}  // namespace platform
