#include "ossdkhost/TelemetryLog.h"

#include <csignal>
#include <fstream>
#include <set>

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/LogCapture.h"
#include "support/TempDir.h"

namespace platform {
namespace {

void expectCleanExits(int processes) {
  for (int process = 0; process < processes; ++process) {
    int status = -1;
    wait(&status);
    EXPECT_EQ(status, 0);
  }
}

TEST(TelemetryLogTest, processesThatRotateTogetherLoseAndTearNothing) {
  const test::TempDir dir;
  constexpr int kProcesses = 4;
  constexpr int kLines = 1500;
  constexpr size_t kLineBytes = 1000;  // 6 MB in all: one rotation
  for (int process = 0; process < kProcesses; ++process) {
    if (fork() != 0) continue;
    TelemetryLog log;
    for (int i = 0; i < kLines; ++i) {
      std::string line = std::to_string(process) + "/" + std::to_string(i) + " ";
      line.resize(kLineBytes - 1, 'x');
      if (!log.append(dir.path(), line + "\n", false)) _exit(1);
    }
    _exit(0);
  }
  expectCleanExits(kProcesses);
  std::set<std::string> seen;
  for (const char* name : {"telemetry.jsonl", "telemetry.jsonl.1"}) {
    std::ifstream file(dir.path(name));
    for (std::string line; std::getline(file, line);) {
      EXPECT_EQ(line.size(), kLineBytes - 1);
      seen.insert(line.substr(0, line.find(' ')));
    }
    struct stat status {};
    ASSERT_EQ(stat(dir.path(name).c_str(), &status), 0);
    // Each process may have looked at the size before the others' last lines.
    EXPECT_LE(static_cast<size_t>(status.st_size), TelemetryLog::kMaxBytes + kProcesses * kLineBytes);
  }
  EXPECT_EQ(seen.size(), static_cast<size_t>(kProcesses * kLines));
}

TEST(TelemetryLogTest, oneOldFileIsKept) {
  const test::TempDir dir;
  TelemetryLog log;
  const std::string line(TelemetryLog::kMaxBytes / 2, 'x');
  for (const char* end : {"1\n", "2\n", "3\n"}) ASSERT_TRUE(log.append(dir.path(), line + end, true));
  EXPECT_EQ(test::readFile(dir.path("telemetry.jsonl")), line + "3\n");
  EXPECT_EQ(test::readFile(dir.path("telemetry.jsonl.1")), line + "2\n");
}

TEST(TelemetryLogTest, followsTheFileAndTheDirectory) {
  const test::TempDir first;
  const test::TempDir second;
  TelemetryLog log;
  ASSERT_TRUE(log.append(first.path(), "a\n", false));
  ASSERT_TRUE(log.append(second.path(), "b\n", false));
  ASSERT_TRUE(log.append(second.path(), "c\n", false));
  EXPECT_EQ(test::readFile(second.path("telemetry.jsonl")), "b\nc\n");
  ASSERT_EQ(unlink(second.path("telemetry.jsonl").c_str()), 0);
  ASSERT_TRUE(log.append(second.path(), "d\n", false));
  EXPECT_EQ(test::readFile(second.path("telemetry.jsonl")), "d\n");
}

TEST(TelemetryLogTest, aPathThatIsNoFileIsRefusedAndToldOnce) {
  const test::TempDir dir;
  const test::LogCapture captured;
  TelemetryLog log;
  const std::string path = dir.path("telemetry.jsonl");
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  EXPECT_FALSE(log.append(dir.path(), "a\n", false));
  EXPECT_FALSE(log.append(dir.path(), "a\n", false));
  EXPECT_EQ(captured.lines().size(), 1u);
  ASSERT_EQ(unlink(path.c_str()), 0);
  EXPECT_TRUE(log.append(dir.path(), "a\n", false)) << "and is forgiven once it is gone";
  ASSERT_EQ(unlink(path.c_str()), 0);
  ASSERT_EQ(mkdir(path.c_str(), 0755), 0);
  EXPECT_FALSE(log.append(dir.path(), "a\n", false));
  EXPECT_EQ(captured.lines().size(), 2u);
}

TEST(TelemetryLogTest, aFullDiskDoesNotSwallowTheNextLine) {
  const test::TempDir dir;
  if (fork() == 0) {
    signal(SIGXFSZ, SIG_IGN);
    TelemetryLog log;
    struct rlimit limit {};
    getrlimit(RLIMIT_FSIZE, &limit);
    limit.rlim_cur = 10;  // bytes a file may grow to
    setrlimit(RLIMIT_FSIZE, &limit);
    if (log.append(dir.path(), "a line of twenty...\n", false)) _exit(1);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_FSIZE, &limit);
    _exit(log.append(dir.path(), "whole\n", false) ? 0 : 2);
  }
  expectCleanExits(1);
  EXPECT_EQ(test::readFile(dir.path("telemetry.jsonl")), "a line of \nwhole\n");
}

}  // namespace
}  // namespace platform
