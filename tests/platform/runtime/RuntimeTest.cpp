#include <filesystem>
#include <sstream>
#include <tuple>

#include <android/log.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include "runtime/Files.h"
#include "runtime/HostLog.h"
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

std::string readWhatIsThere(int fd) {
  std::string text;
  char buffer[4096];
  for (ssize_t got = 0; (got = read(fd, buffer, sizeof(buffer))) > 0;)
    text.append(buffer, static_cast<size_t>(got));
  return text;
}

// Logs far more than a pipe holds, and reads it only then.
void fillThePipe(uid_t uid) {
  constexpr int kLines = 5000;
  int log[2];
  ASSERT_EQ(pipe2(log, O_CLOEXEC), 0);
  ASSERT_EQ(fcntl(log[0], F_SETFL, O_NONBLOCK), 0);
  ASSERT_EQ(dup2(log[1], STDERR_FILENO), STDERR_FILENO);
  ASSERT_EQ(setuid(uid), 0);
  alarm(60);  // ends a process that blocks
  installHostLog();
  for (int i = 0; i < kLines; ++i)
    __android_log_write(ANDROID_LOG_ERROR, "test", "nobody reads this for now");
  std::istringstream first(readWhatIsThere(log[0]));
  int whole = 0;
  for (std::string line; std::getline(first, line); ++whole)
    EXPECT_THAT(line, testing::EndsWith("nobody reads this for now"));
  EXPECT_GT(whole, 100);
  __android_log_write(ANDROID_LOG_ERROR, "test", "the last line\n");
  const std::string rest = readWhatIsThere(log[0]);
  EXPECT_THAT(rest, HasSubstr(std::to_string(kLines - whole) + " log lines were lost"));
  EXPECT_THAT(rest, testing::EndsWith(" the last line\n"));
  _exit(testing::Test::HasFailure() ? 1 : 0);
}

// Another user's pipe cannot be opened a second time, so both ways to write are tested.
TEST(HostLogTest, aFullPipeBlocksNobodyAndTheLostLinesAreCounted) {
  for (const uid_t uid : {getuid(), getuid() == 0 ? uid_t{10123} : getuid()}) {
    EXPECT_EXIT(fillThePipe(uid), testing::ExitedWithCode(0), "") << "uid " << uid;
  }
}

[[noreturn]] void logAWarning() {
  installHostLog();
  __android_log_write(ANDROID_LOG_WARN, "test", "a warning");
  _exit(0);
}

TEST(HostLogTest, theEnvironmentSetsTheLeastPriority) {
  const std::pair<const char*, testing::Matcher<const std::string&>> cases[] = {
      {"error", Not(HasSubstr("a warning"))},
      {"warn", HasSubstr("a warning")},
      {"", HasSubstr("a warning")},
      {"loud", AllOf(HasSubstr("a warning"), HasSubstr("TORV_LOG_LEVEL=loud: it may be"))}};
  for (const auto& [level, logged] : cases) {
    const test::ScopedEnv environment("TORV_LOG_LEVEL", level);
    EXPECT_EXIT(logAWarning(), testing::ExitedWithCode(0), logged) << level;
  }
}

}  // namespace
}  // namespace platform
