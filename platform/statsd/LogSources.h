#pragma once

#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <android-base/result.h>
#include <sys/types.h>

namespace libstatsd {

// The uids of applications, which the source AID_APP stands for. Immutable.
class ApplicationUids {
 public:
  // The device's: 10000 to 19999 of each user (a user's uids are 100000 apart).
  ApplicationUids() = default;

  // Parses uids and ranges of uids, as in "1000-59999,70000". Returns an error that names the first part that
  // is neither, or a range whose ends are in the wrong order.
  [[nodiscard]] static android::base::Result<ApplicationUids> parse(std::string_view text);

  // Those that the environment variable TORV_APP_UIDS gives; the device's if it is not set or empty, and,
  // after an error in the log, if it does not parse.
  static ApplicationUids ofThisHost();

  bool contains(uid_t uid) const;
  // For people: the ranges as they were given, or what the device's are.
  const std::string& text() const { return mText; }

 private:
  struct Range {
    uid_t first;
    uid_t last;
  };

  std::vector<Range> mRanges;  // empty: the device's
  std::string mText = "10000-19999 of each user";
};

// Whose atoms a configuration takes, by the uid that the kernel gives for the sender. A name of Android's
// table of users (AID_SYSTEM) stands for its uid; AID_APP for the applications and for the service's own uid,
// because a host may have no other user. Any other name is a package's, and a host has no packages, so it
// stands for nobody. Immutable.
class LogSources {
 public:
  LogSources(const std::vector<std::string>& names, uid_t serviceUid, ApplicationUids applications);

  bool allow(uid_t sender) const;

 private:
  std::set<uid_t> mUids;
  bool mAllowApplications = false;
  ApplicationUids mApplications;
};

}  // namespace libstatsd
