#include "LogSources.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <string_view>
#include <utility>

#include <android-base/strings.h>
#include <android/log.h>
#include <private/android_filesystem_config.h>

namespace libstatsd {

using android::base::Error;
using android::base::Result;

namespace {

constexpr char kVariable[] = "TORV_APP_UIDS";

// Of the names with a fixed uid, those of processes that publish atoms.
constexpr std::pair<std::string_view, uid_t> kFixedUids[] = {
    {"AID_ROOT", AID_ROOT},   {"AID_SYSTEM", AID_SYSTEM},       {"AID_RADIO", AID_RADIO},
    {"AID_MEDIA", AID_MEDIA}, {"AID_BLUETOOTH", AID_BLUETOOTH}, {"AID_GRAPHICS", AID_GRAPHICS},
    {"AID_SHELL", AID_SHELL}, {"AID_STATSD", AID_STATSD},       {"AID_LMKD", AID_LMKD},
};

// Unlike android::base::ParseUint, takes no sign, blank or hexadecimal number.
bool parseUid(std::string_view text, uid_t& uid) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), uid);
  return error == std::errc() && end == text.data() + text.size();
}

}  // namespace

bool contains(const UidRanges& ranges, uid_t uid) {
  return std::any_of(ranges.begin(), ranges.end(), [uid](const UidRange& range) {
    const uid_t compared = range.ofEachUser ? uid % AID_USER_OFFSET : uid;
    return compared >= range.first && compared <= range.last;
  });
}

Result<ApplicationUids> ApplicationUids::parse(const std::string& text) {
  ApplicationUids uids{{}, text};
  for (const std::string& part : android::base::Split(text, ",")) {
    const std::vector<std::string> ends = android::base::Split(part, "-");
    UidRange& range = uids.ranges.emplace_back();
    if (ends.size() > 2 || !parseUid(ends.front(), range.first) || !parseUid(ends.back(), range.last) ||
        range.first > range.last) {
      return Error() << '"' << part << "\" is neither a uid nor a range of uids, such as 1000-59999";
    }
  }
  return uids;
}

ApplicationUids ApplicationUids::ofThisHost() {
  const char* value = getenv(kVariable);
  if (value == nullptr || *value == '\0') return {};
  auto uids = parse(value);
  if (uids.ok()) return *std::move(uids);
  __android_log_print(ANDROID_LOG_ERROR, "statsd", "%s=%s: %s; applications have the uids %s", kVariable,
                      value, uids.error().message().c_str(), ApplicationUids().text.c_str());
  return {};
}

UidRanges uidsOfSources(const std::vector<std::string>& names, uid_t serviceUid,
                        const ApplicationUids& applications) {
  UidRanges uids;
  for (const std::string& name : names) {
    if (name == "AID_APP") {
      uids.insert(uids.end(), applications.ranges.begin(), applications.ranges.end());
      uids.push_back({serviceUid, serviceUid});
    }
    for (const auto& [fixedName, uid] : kFixedUids) {
      if (name == fixedName) uids.push_back({uid, uid});
    }
  }
  return uids;
}

}  // namespace libstatsd
