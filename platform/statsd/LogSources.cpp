#include "LogSources.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <map>
#include <utility>

#include <android/log.h>
#include <private/android_filesystem_config.h>

namespace libstatsd {

using android::base::Error;
using android::base::Result;

namespace {

constexpr char kVariable[] = "TORV_APP_UIDS";

// Of the names with a fixed uid, those of processes that publish atoms.
const std::map<std::string_view, uid_t>& fixedUids() {
  static const auto& uids = *new std::map<std::string_view, uid_t>{
      {"AID_ROOT", AID_ROOT},   {"AID_SYSTEM", AID_SYSTEM},       {"AID_RADIO", AID_RADIO},
      {"AID_MEDIA", AID_MEDIA}, {"AID_BLUETOOTH", AID_BLUETOOTH}, {"AID_GRAPHICS", AID_GRAPHICS},
      {"AID_SHELL", AID_SHELL}, {"AID_STATSD", AID_STATSD},       {"AID_LMKD", AID_LMKD},
  };
  return uids;
}

bool parseUid(std::string_view text, uid_t* uid) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), *uid);
  return error == std::errc() && end == text.data() + text.size();
}

}  // namespace

Result<ApplicationUids> ApplicationUids::parse(std::string_view text) {
  ApplicationUids uids;
  uids.mText = text;
  for (size_t start = 0; start <= text.size();) {
    const size_t end = std::min(text.find(',', start), text.size());
    const std::string_view part = text.substr(start, end - start);
    const size_t dash = part.find('-');
    Range range{};
    if (!parseUid(part.substr(0, dash), &range.first) ||
        !parseUid(dash == std::string_view::npos ? part : part.substr(dash + 1), &range.last) ||
        range.first > range.last) {
      return Error() << '"' << part << "\" is neither a uid nor a range of uids, such as 1000-59999";
    }
    uids.mRanges.push_back(range);
    start = end + 1;
  }
  return uids;
}

ApplicationUids ApplicationUids::ofThisHost() {
  const char* value = getenv(kVariable);
  if (value == nullptr || *value == '\0') return {};
  auto uids = parse(value);
  if (uids.ok()) return *std::move(uids);
  __android_log_print(ANDROID_LOG_ERROR, "statsd", "%s=%s: %s; applications have the uids %s", kVariable,
                      value, uids.error().message().c_str(), ApplicationUids().text().c_str());
  return {};
}

bool ApplicationUids::contains(uid_t uid) const {
  const uid_t ofUser = uid % AID_USER_OFFSET;
  if (mRanges.empty()) return ofUser >= AID_APP_START && ofUser <= AID_APP_END;
  return std::any_of(mRanges.begin(), mRanges.end(),
                     [uid](const Range& range) { return uid >= range.first && uid <= range.last; });
}

LogSources::LogSources(const std::vector<std::string>& names, uid_t serviceUid, ApplicationUids applications)
    : mApplications(std::move(applications)) {
  for (const std::string& name : names) {
    if (name == "AID_APP") {
      mAllowApplications = true;
      mUids.insert(serviceUid);
    } else if (const auto found = fixedUids().find(name); found != fixedUids().end()) {
      mUids.insert(found->second);
    }
  }
}

bool LogSources::allow(uid_t sender) const {
  return (mAllowApplications && mApplications.contains(sender)) || mUids.count(sender) != 0;
}

}  // namespace libstatsd
