#include "ossdkhost/PreferencesFile.h"

#include <atomic>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "base/Json.h"
#include "runtime/Files.h"
#include "support/LogCapture.h"
#include "support/Result.h"
#include "support/TempDir.h"

namespace platform {
namespace {

using ::testing::HasSubstr;

class PreferencesFileTest : public ::testing::Test {
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

}  // namespace
}  // namespace platform
