#include <cerrno>
#include <filesystem>
#include <string>
#include <tuple>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "runtime/Files.h"
#include "runtime/LogLimit.h"
#include "runtime/RuntimeDirectory.h"
#include "support/Result.h"
#include "support/TempDir.h"

namespace platform {
namespace {

using test::errorOf;
using testing::HasSubstr;

int modeOf(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 ? static_cast<int>(status.st_mode & ALLPERMS) : -1;
}

TEST(RuntimeDirectoryTest, isTheNamedOneElseTheUsersElseOneOfTheUid) {
  const auto directoryWith = [](const char* named, const char* users) {
    const test::ScopedEnv first("TORV_RUNTIME_DIR", named);
    const test::ScopedEnv second("XDG_RUNTIME_DIR", users);
    return runtimeDirectory();
  };
  EXPECT_EQ(directoryWith("/somewhere/else", "/run/user/5"), "/somewhere/else");
  if (std::filesystem::exists("/run/torv")) GTEST_SKIP() << "this machine has a directory for its service";
  EXPECT_EQ(directoryWith("", "/run/user/5"), "/run/user/5/torv");
  EXPECT_EQ(directoryWith("", ""), "/tmp/torv-" + std::to_string(getuid()));
}

TEST(RuntimeDirectoryTest, isMadeWithItsParentsUnlessSomethingElseIsInItsPlace) {
  const test::TempDir base;
  for (int i = 0; i < 2; i++) EXPECT_EQ(errorOf(prepareRuntimeDirectory(base.path("a/b/c"))), "");
  const std::string file = base.write("file", "");
  EXPECT_THAT(errorOf(prepareRuntimeDirectory(file)), HasSubstr(file + " is not a directory"));
  std::filesystem::create_directory(base.path("real"));
  std::filesystem::create_symlink(base.path("real"), base.path("link"));
  EXPECT_THAT(errorOf(prepareRuntimeDirectory(base.path("link"))), HasSubstr("is not a directory"))
      << "another user can put a link into a directory that all may write to";
  EXPECT_THAT(errorOf(holdServiceLock(file)), HasSubstr(file));
  // Root may give a directory away; others find one of root's.
  const std::string theirs = getuid() == 0 ? base.path("real") : "/usr";
  if (getuid() == 0) std::ignore = chown(theirs.c_str(), 12345, 12345);
  EXPECT_THAT(errorOf(prepareRuntimeDirectory(theirs)), HasSubstr(theirs + " belongs to uid"));
}

TEST(RuntimeDirectoryTest, lockFilesAreClosedToOtherUsersAndHeldUntilTheirDescriptorIsClosed) {
  const test::TempDir directory;
  for (const char* name : {"lock", "telemetry.lock", "properties"}) {
    chmod(directory.write(name, "").c_str(), 0644);
  }
  ASSERT_EQ(errorOf(holdServiceLock(directory.path())), "");
  ASSERT_EQ(errorOf(holdServiceLock(directory.path())), "") << "the same process may ask again";
  for (const char* name : {"lock", "telemetry.lock"}) EXPECT_EQ(modeOf(directory.path(name)), 0600) << name;
  EXPECT_EQ(modeOf(directory.path("properties")), 0644);
  EXPECT_EQ(tryLockFile(directory.path("lock")).error().code(), EWOULDBLOCK);
  { ASSERT_EQ(errorOf(lockFile(directory.path("properties"))), ""); }
  EXPECT_EQ(modeOf(directory.path("properties")), 0600);
  EXPECT_EQ(errorOf(tryLockFile(directory.path("properties"))), "") << "it was held while it was open";
  EXPECT_THAT(errorOf(lockFile(directory.path("none/lock"))), HasSubstr("none/lock: No such file"));
}

TEST(FilesTest, aFileIsReplacedAsAWholeOrNotAtAll) {
  const test::TempDir directory;
  const std::string path = directory.write("text", "old");
  EXPECT_EQ(errorOf(replaceFile(path, "new")), "");
  EXPECT_EQ(test::readFile(path), "new");
  std::filesystem::create_directory(directory.path("taken"));
  EXPECT_THAT(errorOf(replaceFile(directory.path("taken"), "x")), HasSubstr(directory.path("taken")));
  const std::filesystem::directory_iterator entries(directory.path());
  EXPECT_EQ(std::distance(begin(entries), end(entries)), 2) << "a temporary file is left";
}

TEST(LogLimitTest, letsOneLineThroughForEachPauseAndCountsTheOthers) {
  LogLimit limit(100);
  EXPECT_EQ(limit.count(5), 1U) << "the first occurrence is logged, whatever the clock says";
  EXPECT_EQ(limit.count(5), 0U);
  EXPECT_EQ(limit.count(104), 0U);
  EXPECT_EQ(limit.count(105), 3U);
  EXPECT_EQ(limit.count(205), 1U);
}

}  // namespace
}  // namespace platform
