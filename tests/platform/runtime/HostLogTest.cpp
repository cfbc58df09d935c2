#include "runtime/HostLog.h"

#include <csignal>
#include <cstdlib>
#include <sstream>
#include <string>
#include <string_view>

#include <android/log.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/TempDir.h"

namespace platform {
namespace {

using testing::EndsWith;
using testing::HasSubstr;

constexpr int kLines = 5000;

void logLine(const char* text) {
  __android_log_write(ANDROID_LOG_ERROR, "test", text);
}

// Logs far more than a pipe holds, says so to `parent`, waits for its answer, and logs one line more.
[[noreturn]] void logWithoutAReader(int log, int parent, uid_t uid) {
  dup2(log, STDERR_FILENO);
  if (setuid(uid) != 0) _exit(2);
  alarm(60);  // ends a child that blocks
  installHostLog();
  for (int i = 0; i < kLines; ++i) logLine("a line that nobody reads for now");
  char byte = 'x';
  if (write(parent, &byte, 1) != 1 || read(parent, &byte, 1) != 1) _exit(3);
  logLine("the last line\n");
  _exit(0);
}

std::string readWhatIsThere(int fd) {
  std::string text;
  char buffer[4096];
  for (ssize_t got = 0; (got = read(fd, buffer, sizeof(buffer))) > 0;)
    text.append(buffer, static_cast<size_t>(got));
  return text;
}

// Another user's pipe cannot be opened a second time, so both ways to write are tested.
TEST(HostLogTest, aFullPipeBlocksNobodyAndTheLostLinesAreCounted) {
  for (const uid_t uid : {getuid(), getuid() == 0 ? uid_t{10123} : getuid()}) {
    int log[2];
    int talk[2];
    ASSERT_EQ(pipe2(log, O_CLOEXEC), 0);
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, talk), 0);
    const pid_t child = fork();
    if (child == 0) logWithoutAReader(log[1], talk[1], uid);
    close(log[1]);
    close(talk[1]);
    ASSERT_EQ(fcntl(log[0], F_SETFL, O_NONBLOCK), 0);
    char byte = 0;
    ASSERT_EQ(read(talk[0], &byte, 1), 1) << "the child has ended before it could say that it is done";
    std::istringstream first(readWhatIsThere(log[0]));
    ASSERT_EQ(write(talk[0], &byte, 1), 1);
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    int whole = 0;
    for (std::string line; std::getline(first, line); ++whole)
      EXPECT_THAT(line, EndsWith("nobody reads for now"));
    EXPECT_GT(whole, 100);
    const std::string rest = readWhatIsThere(log[0]);
    EXPECT_THAT(rest, HasSubstr(std::to_string(kLines - whole) + " log lines were lost"));
    EXPECT_THAT(rest, EndsWith(" the last line\n"));
    for (const int fd : {log[0], talk[0]}) close(fd);
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
