#include "timeline/Recorder.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include <android-base/file.h>
#include <fcntl.h>
#include <unistd.h>

#include "Json.h"
#include "base/Files.h"

namespace timeline {
namespace {

using android::base::ErrnoError;
using android::base::Error;
using android::base::Result;

constexpr int64_t kPictureEveryMs = 60'000;
// The shortest history holds 60 samples, one a second.
constexpr int64_t kContextEveryMs = 30'000;

Json::Value lineAt(int64_t bootMs) {
  Json::Value line(Json::objectValue);
  line["at"] = Json::Int64{bootMs};
  return line;
}

// null cannot be a value that a process has published, so it can say that the key is gone.
Json::Value toJson(const Changes& changes) {
  Json::Value json(Json::objectValue);
  for (const auto& [pid, keys] : changes) {
    Json::Value& process = json[std::to_string(pid)] = Json::Value(Json::objectValue);
    for (const auto& [key, value] : keys) process[key] = value ? Json::Value(*value) : Json::Value();
  }
  return json;
}

}  // namespace

// O_RDWR, because the oldest minutes are removed by copying the rest.
Result<Recorder> Recorder::create(const RecorderSettings& settings, const Clocks& now) {
  Recorder recorder(settings);
  recorder.mFd.reset(open(settings.path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOCTTY, 0644));
  if (!recorder.mFd.ok()) return ErrnoError() << "cannot create " << settings.path;
  Json::Value line(Json::objectValue);
  line["format"] = kRecordingFormat;
  line["version"] = kRecordingVersion;
  line["machine"] = settings.machine;
  line["every_ms"] = Json::Int64{settings.everyMs};
  line["clocks"] = timeline::toJson(now);
  recorder.mFirstLine = compact(line) + '\n';
  if (const auto written = recorder.writeLine(line); !written.ok()) return Error() << written.error();
  return recorder;
}

// Half of the shortest history, so that two contexts overlap even if one comes late.
bool Recorder::wantsContext(int64_t bootMs) const {
  return mStarting || mInGap || bootMs - mContextMs >= kContextEveryMs;
}

// The context comes last: readers see the states of its time before it.
Result<void> Recorder::add(const Answer& answer, const std::set<int32_t>& dead) {
  const bool picture = mStarting || mInGap || answer.clocks.bootMs - mPictureMs >= kPictureEveryMs;
  if (auto written = picture ? addPicture(answer) : addChanges(answer); !written.ok()) return written;
  // Only now, so that a write that fails is tried again as a full picture.
  mStarting = mInGap = false;
  mLast = answer.processes;
  if (auto written = addDeaths(answer, dead); !written.ok()) return written;
  if (answer.context.empty()) return {};
  mContextMs = answer.clocks.bootMs;
  Json::Value line(Json::objectValue);
  line["clocks"] = timeline::toJson(answer.clocks);
  line["context"] = timeline::toJson(answer.context);
  for (const auto& [nameSpace, states] : answer.globals)
    line["globals"][nameSpace] = timeline::toJson(states);
  return writeLine(line);
}

Result<void> Recorder::addPicture(const Answer& answer) {
  if (auto dropped = dropOldestMinutes(); !dropped.ok()) return dropped;
  mPictureMs = answer.clocks.bootMs;
  mMinutes.push_back(mBytes);
  Json::Value line(Json::objectValue);
  line["clocks"] = timeline::toJson(answer.clocks);
  line["processes"] = timeline::toJson(answer.processes);
  if (auto written = writeLine(line); !written.ok()) return written;
  // The minutes before may be gone one day, so each one repeats what is still true of its processes.
  for (auto name = mNames.begin(); name != mNames.end();) {
    name = answer.processes.contains(name->first) ? std::next(name) : mNames.erase(name);
  }
  const std::map<int32_t, std::string> names = std::exchange(mNames, {});
  return addNames(answer.clocks.bootMs, names);
}

// Most answers change nothing and cost the file nothing.
Result<void> Recorder::addChanges(const Answer& answer) {
  const Changes changes = difference(mLast, answer.processes);
  if (changes.empty()) return {};
  Json::Value line = lineAt(answer.clocks.bootMs);
  line["changed"] = toJson(changes);
  return writeLine(line);
}

// A pid that runs again leaves `dead`, so its next death is told as well.
Result<void> Recorder::addDeaths(const Answer& answer, const std::set<int32_t>& dead) {
  Json::Value pids(Json::arrayValue);
  for (const int32_t pid : dead) {
    if (!mDead.contains(pid)) pids.append(pid);
  }
  mDead = dead;
  if (pids.empty()) return {};
  Json::Value line = lineAt(answer.clocks.bootMs);
  line["dead"] = pids;
  return writeLine(line);
}

// A pid that is used again may have another name, so names are compared and not only counted.
Result<void> Recorder::addNames(int64_t bootMs, const std::map<int32_t, std::string>& names) {
  Json::Value news(Json::objectValue);
  for (const auto& [pid, name] : names) {
    const auto known = mNames.find(pid);
    if (known != mNames.end() && known->second == name) continue;
    news[std::to_string(pid)] = name;
    mNames[pid] = name;
  }
  if (news.empty()) return {};
  Json::Value line = lineAt(bootMs);
  line["names"] = news;
  return writeLine(line);
}

// The reason of the first failure is the one that tells: the later ones only repeat that nobody answers.
Result<void> Recorder::addGap(int64_t bootMs, const std::string& reason) {
  if (mInGap) return {};
  mInGap = true;
  Json::Value line = lineAt(bootMs);
  line["gap"] = reason;
  return writeLine(line);
}

// Without a buffer: what is written survives the recorder, and a full disk is noticed at the line that it
// cuts.
Result<void> Recorder::writeLine(const Json::Value& line) {
  const std::string text = compact(line) + '\n';
  if (!android::base::WriteFully(mFd.get(), text.data(), text.size())) {
    return ErrnoError() << "cannot write to " << mSettings.path;
  }
  // Counted and not asked of the file system: the file is this recorder's alone.
  mBytes += text.size();
  return {};
}

// Called at the end of a minute. A quarter of the size is made free at once, because it takes a copy of the
// rest. The copy takes the file's place in one step: whoever reads sees the one or the other.
Result<void> Recorder::dropOldestMinutes() {
  if (mBytes <= mSettings.maxBytes || mMinutes.empty()) return {};
  const uint64_t wanted = mSettings.maxBytes / 4 * 3;
  const auto first = std::find_if(mMinutes.begin(), mMinutes.end(), [&](uint64_t offset) {
    return mBytes - offset + mFirstLine.size() <= wanted;
  });
  const uint64_t keptFrom = first == mMinutes.end() ? mBytes : *first;

  if (lseek(mFd.get(), 0, SEEK_SET) != 0) return ErrnoError() << "cannot read " << mSettings.path;
  auto text = Torv::Base::readToEnd(mFd.get(), mBytes);
  if (!text.ok()) return Error() << mSettings.path << ": " << text.error();
  const std::string& kept = text->replace(0, keptFrom, mFirstLine);

  // Beside the file and not in /tmp: rename(2) works within one file system only.
  const std::string temporary = mSettings.path + ".new";
  android::base::unique_fd fd(open(temporary.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
  if (!fd.ok()) return ErrnoError() << "cannot create " << temporary;
  if (!android::base::WriteFully(fd.get(), kept.data(), kept.size()) ||
      rename(temporary.c_str(), mSettings.path.c_str()) != 0) {
    const int error = errno;
    unlink(temporary.c_str());
    return Error(error) << "cannot shorten " << mSettings.path;
  }
  mFd = std::move(fd);
  mBytes = kept.size();
  mMinutes.erase(mMinutes.begin(), first);
  // What is left has moved to the front, behind the first line.
  for (uint64_t& offset : mMinutes) offset = offset - keptFrom + mFirstLine.size();
  return {};
}

}  // namespace timeline
