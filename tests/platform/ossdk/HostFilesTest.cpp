// The files that the module keeps on a host.
#include <atomic>
#include <csignal>
#include <fstream>
#include <set>
#include <thread>

#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "base/Json.h"
#include "ossdkhost/PreferencesFile.h"
#include "ossdkhost/TelemetryLog.h"
#include "runtime/Files.h"
#include "support/LogCapture.h"
#include "support/Result.h"
#include "support/TempDir.h"

namespace platform {
namespace {

using testing::HasSubstr;

class PreferencesFileTest : public testing::Test {
 protected:
  void write(const std::string& text) { mDir.write(PreferencesFile::kName, text); }
  bool exists(const std::string& name) const { return access(mDir.path(name).c_str(), F_OK) == 0; }
  int valueOf(const char* key) {
    const auto values = mFile.read();
    return values != nullptr && values->isMember(key) ? (*values)[key].asInt() : -1;
  }

  test::TempDir mDir;
  PreferencesFile mFile{mDir.path()};
};

TEST_F(PreferencesFileTest, everyChangeIsSeenAtOnce) {
  EXPECT_EQ(valueOf("a"), -1);
  for (int round = 0; round < 50; ++round) {
    write("{\"a\": " + std::to_string(round % 10) + "}");  // same inode, same size, and often the same tick
    EXPECT_EQ(valueOf("a"), round % 10);
  }
}

TEST_F(PreferencesFileTest, aDamagedFileIsSetAside) {
  std::vector<std::string> damaged = {"[]", "7", std::string(100000, '['), std::string(5 << 20, '\0')};
  const std::string whole = R"({"key": "text \" ", "n": 60, "b": true})";
  for (size_t length = 1; length < whole.size(); ++length) damaged.push_back(whole.substr(0, length));
  for (const std::string& text : damaged) {
    const test::LogCapture log;
    write(text);
    EXPECT_TRUE(mFile.read()->empty());
    EXPECT_TRUE(mFile.read()->empty());
    EXPECT_FALSE(exists(PreferencesFile::kName));
    EXPECT_EQ(test::readFile(mDir.path("preferences.json.corrupt")), text);
    ASSERT_EQ(log.lines().size(), 1u) << text;
    EXPECT_THAT(log.lines()[0].text, HasSubstr(mDir.path(PreferencesFile::kName)));
  }
  write("{");
  EXPECT_EQ(test::errorOf(mFile.update([](Json::Value& values) { values["a"] = 1; })), "");
  EXPECT_EQ(valueOf("a"), 1) << "a writer begins anew where the old file is damaged";
}

TEST_F(PreferencesFileTest, whatIsNoFileIsToldOnceAndLeftAlone) {
  const test::LogCapture log;
  ASSERT_EQ(mkfifo(mDir.path(PreferencesFile::kName).c_str(), 0600), 0);
  EXPECT_EQ(mFile.read(), nullptr) << "and does not wait for a writer";
  EXPECT_EQ(mFile.read(), nullptr);
  EXPECT_EQ(log.lines().size(), 1u);
  EXPECT_NE(test::errorOf(mFile.update([](Json::Value&) {})), "");
}

TEST_F(PreferencesFileTest, aRefusedUpdateSaysWhyAndChangesNothing) {
  write(R"({"a": 1})");
  const auto enlarge = [](Json::Value& values) { values["b"] = std::string(Torv::Base::kMaxJsonBytes, 'b'); };
  EXPECT_THAT(test::errorOf(mFile.update(enlarge)), HasSubstr("larger than"));
  EXPECT_EQ(valueOf("a"), 1);
  PreferencesFile nowhere(mDir.path("missing"));
  EXPECT_THAT(test::errorOf(nowhere.update([](Json::Value&) {})), HasSubstr(mDir.path("missing")));
}

TEST_F(PreferencesFileTest, writersOfSeveralProcessesLoseNothing) {
  for (const char* process : {"a", "b", "c", "d"}) {
    if (fork() != 0) continue;
    PreferencesFile file(mDir.path());
    for (int i = 0; i < 25; ++i) {
      if (!file.update([&](Json::Value& values) { values[process + std::to_string(i)] = i; }).ok()) _exit(1);
    }
    _exit(0);
  }
  for (int status = -1; wait(&status) > 0;) EXPECT_EQ(status, 0);
  EXPECT_EQ(mFile.read()->size(), 100u);
}

TEST_F(PreferencesFileTest, aReaderOfADamagedFileLeavesItsSuccessorInPlace) {
  const test::LogCapture log;
  std::atomic<bool> done = false;
  std::atomic<int> reads = 0;
  std::thread reader([&] {
    for (; !done; ++reads) EXPECT_NE(mFile.read(), nullptr);
  });
  const std::string damaged = "{" + std::string(1 << 18, ' ');  // is replaced while it is parsed
  for (int round = 0; round < 20; ++round) {
    for (const std::string& text : {damaged, std::string("{}")}) {
      const auto lock = lockFile(mDir.path("preferences.lock"));  // as every writer does
      EXPECT_EQ(test::errorOf(replaceFile(mDir.path(PreferencesFile::kName), text)), "");
    }
    for (const int before = reads; reads < before + 2;) std::this_thread::yield();
    EXPECT_TRUE(exists(PreferencesFile::kName));
  }
  done = true;
  reader.join();
}

class TelemetryLogTest : public testing::Test {
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
  // Moved by somebody else, the file is left as soon as that is noticed.
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
  EXPECT_THAT(log.texts(ANDROID_LOG_WARN), testing::ElementsAre(HasSubstr("which was put off 3 times")));
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
