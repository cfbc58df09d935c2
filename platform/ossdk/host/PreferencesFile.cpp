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
using Torv::Base::LockGuard;
using Torv::Base::toNanoseconds;

namespace {

struct Files {
  Torv::Base::Mutex mutex;
  std::map<std::string, std::shared_ptr<PreferencesFile>> byDirectory GUARDED_BY(mutex);
};

// File times advance with the kernel's tick, of 10 ms at most: a file that was changed this recently may
// change again and look the same.
bool isSettled(const timespec& changed) {
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

// What the file holds. A missing file, and a damaged one, hold no values.
struct PreferencesFile::Reading {
  Json::Value values{Json::objectValue};
  std::string damage;  // what is wrong with a damaged file, else empty
  Identity identity{};
  bool settled = false;
};

PreferencesFile::Identity PreferencesFile::identityOf(const struct stat& status) {
  return {static_cast<int64_t>(status.st_dev), static_cast<int64_t>(status.st_ino), status.st_size,
          toNanoseconds(status.st_mtim), toNanoseconds(status.st_ctim)};
}

std::shared_ptr<PreferencesFile> PreferencesFile::of(const std::string& directory) {
  static auto& files = *new Files();  // never destroyed: threads look up until the process is gone
  const LockGuard lock(files.mutex);
  std::shared_ptr<PreferencesFile>& file = files.byDirectory[directory];
  if (file == nullptr) file = std::make_shared<PreferencesFile>(directory);
  return file;
}

PreferencesFile::PreferencesFile(const std::string& directory)
    : mPath(directory + "/" + kName), mLockPath(directory + "/preferences.lock") {}

std::shared_ptr<const Json::Value> PreferencesFile::read() {
  struct stat status {};
  if (stat(mPath.c_str(), &status) == 0) {
    const LockGuard lock(mMutex);
    if (mCached != nullptr && mCachedIdentity == identityOf(status)) return mCached;
  }
  Result<Reading> reading = readFile();
  if (!reading.ok()) {
    complain(reading.error().message());
    return nullptr;
  }
  if (reading->damage.empty()) {
    mComplaint.clear();
  } else {
    setAside(*reading);
  }
  auto values = std::make_shared<const Json::Value>(std::move(reading->values));
  if (reading->settled) {
    const LockGuard lock(mMutex);
    mCachedIdentity = reading->identity;
    mCached = values;
  }
  return values;
}

Result<void> PreferencesFile::update(const std::function<void(Json::Value&)>& change) {
  auto lock = lockFile(mLockPath);
  if (!lock.ok()) return lock.error();
  Result<Reading> reading = readFile();
  if (!reading.ok()) return reading.error();
  if (!reading->damage.empty()) setAsideLocked(*reading);
  change(reading->values);
  const std::string text = toText(reading->values);
  if (const auto reread = parseObject(text); !reread.ok()) {
    return Error() << mPath << " would be " << reread.error().message();
  }
  return replaceFile(mPath, text);
}

Result<PreferencesFile::Reading> PreferencesFile::readFile() const {
  Reading reading;
  auto fd = Torv::Base::openForReading(mPath);
  if (!fd.ok() && fd.error().code() == ENOENT) return reading;
  if (!fd.ok()) return fd.error();
  struct stat status {};
  if (fstat(fd->get(), &status) != 0) return ErrnoError() << "cannot look at " << mPath;
  reading.identity = identityOf(status);
  reading.settled = isSettled(status.st_ctim);
  const auto text = Torv::Base::readToEnd(fd->get(), Torv::Base::kMaxJsonBytes);
  if (!text.ok() && text.error().code() != EFBIG) return Error() << mPath << ": " << text.error();
  auto values = text.ok() ? parseObject(*text) : Result<Json::Value>(Error() << text.error().message());
  if (values.ok()) {
    reading.values = *std::move(values);
  } else {
    reading.damage = values.error().message();
  }
  return reading;
}

void PreferencesFile::setAside(const Reading& damaged) {
  // A reader does not wait: if another process holds the lock, that one is about to replace the file.
  const auto lock = tryLockFile(mLockPath);
  if (lock.ok()) {
    setAsideLocked(damaged);
  } else {
    complain(mPath + " is damaged (" + damaged.damage +
             ") and cannot be set aside: " + lock.error().message());
  }
}

void PreferencesFile::setAsideLocked(const Reading& damaged) {
  struct stat status {};
  // Another process may have set it aside already, or put another file in its place.
  if (stat(mPath.c_str(), &status) != 0 || identityOf(status) != damaged.identity) return;
  const std::string aside = mPath + ".corrupt";
  const bool isAside = rename(mPath.c_str(), aside.c_str()) == 0;
  complain(mPath + " is damaged (" + damaged.damage + ") and " +
           (isAside ? "was set aside as " + aside : "cannot be set aside: " + ErrnoError().str()));
}

void PreferencesFile::complain(const std::string& message) {
  if (mComplaint.isNew(message)) {
    __android_log_print(ANDROID_LOG_ERROR, kLogTag, "%s", message.c_str());
  }
}

}  // namespace platform
