#pragma once

#include <string>
#include <vector>

#include <android-base/result.h>
#include <sys/types.h>

namespace libstatsd {

// Uids from `first` to `last`, both included.
struct UidRange {
  uid_t first = 0;
  uid_t last = 0;
  bool ofEachUser = false;  // so many in each Android user, whose uids begin 100000 apart
};

using UidRanges = std::vector<UidRange>;

// Whether one of the ranges holds `uid`.
[[nodiscard]] bool contains(const UidRanges& ranges, uid_t uid);

// The uids of applications, which the source AID_APP stands for. By default the device's: 10000 to 19999 of
// each user.
struct ApplicationUids {
  UidRanges ranges{{10000, 19999, true}};
  std::string text = "10000-19999 of each user";  // the ranges for people, as they were given

  // Parses uids and ranges of uids, as in "1000-59999,70000". Returns an error that names the first part that
  // is neither, or a range whose ends are in the wrong order.
  [[nodiscard]] static android::base::Result<ApplicationUids> parse(const std::string& text);

  // Those that the environment variable TORV_APP_UIDS gives; the device's if it is not set or empty, and,
  // after an error in the log, if it does not parse.
  static ApplicationUids ofThisHost();
};

// Whose atoms a configuration with the log sources `names` takes, by the uid that the kernel gives for the
// sender. A name of Android's table of users (AID_SYSTEM) stands for its uid; AID_APP for the applications
// and for the service's own uid, because a host may have no other user. Any other name is a package's, and a
// host has no packages, so it stands for nobody.
[[nodiscard]] UidRanges uidsOfSources(const std::vector<std::string>& names, uid_t serviceUid,
                                      const ApplicationUids& applications);

}  // namespace libstatsd
