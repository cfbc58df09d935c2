#include "runtime/HostLog.h"

#include <cstdlib>
#include <sstream>
#include <string>
#include <string_view>

#include <android/log.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/TempDir.h"

namespace platform {
namespace {

using testing::EndsWith;
using testing::HasSubstr;

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
    EXPECT_THAT(line, EndsWith("nobody reads this for now"));
  EXPECT_GT(whole, 100);
  __android_log_write(ANDROID_LOG_ERROR, "test", "the last line\n");
  const std::string rest = readWhatIsThere(log[0]);
  EXPECT_THAT(rest, HasSubstr(std::to_string(kLines - whole) + " log lines were lost"));
  EXPECT_THAT(rest, EndsWith(" the last line\n"));
}

// Another user's pipe cannot be opened a second time, so both ways to write are tested.
TEST(HostLogTest, aFullPipeBlocksNobodyAndTheLostLinesAreCounted) {
  for (const uid_t uid : {getuid(), getuid() == 0 ? uid_t{10123} : getuid()}) {
    const pid_t child = fork();
    if (child == 0) {
      fillThePipe(uid);
      _exit(HasFailure() ? 1 : 0);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0) << "uid " << uid;
  }
}

TEST(HostLogTest, theEnvironmentSetsTheLeastPriority) {
  for (const auto& [level, logged] :
       {std::pair("error", false), {"warn", true}, {"", true}, {"loud", true}}) {
    const test::ScopedEnv environment("TORV_LOG_LEVEL", level);
    testing::internal::CaptureStderr();
    const pid_t child = fork();
    if (child == 0) {
      installHostLog();
      __android_log_write(ANDROID_LOG_WARN, "test", "a warning");
      _exit(0);
    }
    waitpid(child, nullptr, 0);
    const std::string text = testing::internal::GetCapturedStderr();
    EXPECT_EQ(text.find("a warning") != std::string::npos, logged) << level;
    EXPECT_EQ(text.find("TORV_LOG_LEVEL=loud: it may be") != std::string::npos,
              std::string_view(level) == "loud");
  }
}

}  // namespace
}  // namespace platform
