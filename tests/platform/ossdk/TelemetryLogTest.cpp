#include "ossdkhost/TelemetryLog.h"

#include <csignal>
#include <fstream>
#include <set>

#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "runtime/Files.h"
#include "support/LogCapture.h"
#include "support/TempDir.h"

namespace platform {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

class TelemetryLogTest : public ::testing::Test {
 protected:
  std::string logged() const { return test::readFile(mPath); }
  bool append(const std::string& line) { return mLog.append(mDir.path(), line, false); }

  test::TempDir mDir;
  const std::string mPath = mDir.path("telemetry.jsonl");
  TelemetryLog mLog;
};

TEST_F(TelemetryLogTest, processesThatRotateTogetherLoseAndTearNothing) {
  constexpr int kProcesses = 4;
  constexpr int kLines = 1500;
  constexpr size_t kLineBytes = 1000;  // 6 MB in all: one rotation
  for (int process = 0; process < kProcesses; ++process) {
    if (fork() != 0) continue;
    for (int i = 0; i < kLines; ++i) {
      std::string line = std::to_string(process) + "/" + std::to_string(i) + " ";
      line.resize(kLineBytes - 1, 'x');
      if (!append(line + "\n")) _exit(1);
    }
    _exit(0);
  }
  for (int status = -1; wait(&status) > 0;) EXPECT_EQ(status, 0);
  std::set<std::string> seen;  // a line that is torn, or lost, changes their number
  for (const std::string& path : {mPath, mPath + ".1"}) {
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) seen.insert(line);
    // Each process may have looked at the size before the others' last lines.
    EXPECT_LE(test::readFile(path).size(),
              TelemetryLog::kMaxBytes + kProcesses * (TelemetryLog::kReopenBytes + kLineBytes));
  }
  EXPECT_EQ(seen.size(), static_cast<size_t>(kProcesses * kLines));
}

TEST_F(TelemetryLogTest, followsTheFileAndTheDirectory) {
  const test::TempDir before;
  ASSERT_TRUE(mLog.append(before.path(), "a\n", false));
  ASSERT_TRUE(append("b\n"));
  EXPECT_EQ(logged(), "b\n");
  // Removed or renamed by somebody else, the file is left as soon as that is noticed.
  ASSERT_EQ(unlink(mPath.c_str()), 0);
  while (logged().empty()) ASSERT_TRUE(append("d\n"));
  EXPECT_EQ(logged(), "d\n");
  ASSERT_EQ(rename(mPath.c_str(), mDir.path("saved").c_str()), 0);
  while (logged().empty()) ASSERT_TRUE(append("e\n"));
  EXPECT_EQ(logged(), "e\n");
}

TEST_F(TelemetryLogTest, aRotationThatAnotherHoldsUpIsLoggedOnceAndCounted) {
  const test::LogCapture log;
  mDir.write(TelemetryLog::kName, std::string(TelemetryLog::kMaxBytes, '\n'));
  {
    const auto held = lockFile(mDir.path("telemetry.lock"));
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(append("held\n"));
  }
  EXPECT_TRUE(append("free\n"));
  EXPECT_EQ(logged(), "free\n");
  EXPECT_EQ(log.texts(ANDROID_LOG_ERROR).size(), 1u);
  EXPECT_THAT(log.texts(ANDROID_LOG_WARN), ElementsAre(HasSubstr("which was put off 3 times")));
}

TEST_F(TelemetryLogTest, aFullDiskDoesNotSwallowTheNextLine) {
  if (fork() == 0) {
    signal(SIGXFSZ, SIG_IGN);
    struct rlimit limit {};
    getrlimit(RLIMIT_FSIZE, &limit);
    limit.rlim_cur = 10;  // bytes a file may grow to
    setrlimit(RLIMIT_FSIZE, &limit);
    if (append("a line of twenty...\n")) _exit(1);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_FSIZE, &limit);
    _exit(append("whole\n") ? 0 : 2);
  }
  for (int status = -1; wait(&status) > 0;) EXPECT_EQ(status, 0);
  EXPECT_EQ(logged(), "a line of \nwhole\n");
}

}  // namespace
}  // namespace platform
