#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include <sys/types.h>

namespace libstatsd {

// Whose atoms a configuration takes, decided by the uid that the kernel vouches for. A name of the AID table
// stands for its one uid; AID_APP for the application uids, 10000 to 19999 of each user, and, as a host has
// no such users of its own, for the service's uid too; any other name is a package's, and no uid has packages
// on a host.
class LogSources {
 public:
  LogSources(const std::vector<std::string>& names, uid_t serviceUid);

  bool allow(uid_t sender) const;

 private:
  std::set<uid_t> mUids;
  bool mApplications = false;
};

}  // namespace libstatsd
