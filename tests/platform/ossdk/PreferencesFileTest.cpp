#include "ossdkhost/PreferencesFile.h"

#include <atomic>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "os/Json.h"
#include "runtime/Files.h"
#include "support/LogCapture.h"
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

TEST_F(PreferencesFileTest, noFileAndAnEmptyOneHoldNothing) {
  const test::LogCapture log;
  EXPECT_EQ(*mFile.read(), Json::Value(Json::objectValue));
  write(" \n");
  EXPECT_EQ(*mFile.read(), Json::Value(Json::objectValue));
  EXPECT_TRUE(exists(PreferencesFile::kName));
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(PreferencesFileTest, everyChangeIsSeenAtOnce) {
  for (int round = 0; round < 50; ++round) {
    write("{\"a\": " + std::to_string(round % 10) + "}");  // same inode, same size, and often the same tick
    EXPECT_EQ(valueOf("a"), round % 10);
  }
  ASSERT_FALSE(mFile.update([](Json::Value& values) { values["a"] = 77; }));
  EXPECT_EQ(valueOf("a"), 77);
  EXPECT_FALSE(exists("preferences.json.corrupt"));
}

TEST_F(PreferencesFileTest, anUnchangedFileIsParsedOnce) {
  write(R"({"a": 1})");
  const std::string path = mDir.path(PreferencesFile::kName);
  const auto isShared = [this] { return mFile.read() == mFile.read(); };
  // Not before the kernel's file times have moved on from the write.
  while (!isShared()) std::this_thread::yield();
  const auto before = mFile.read();
  EXPECT_EQ(mFile.read(), before);
  const struct timespec old[2] = {};
  ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), old, 0), 0);
  EXPECT_NE(mFile.read(), before);
}

TEST_F(PreferencesFileTest, aFileCutAtAnyByteIsSetAside) {
  const std::string whole = R"({"key": "text \" ", "n": 60, "b": true})";
  for (size_t length = 1; length < whole.size(); ++length) {
    const test::LogCapture log;
    write(whole.substr(0, length));
    EXPECT_TRUE(mFile.read()->empty());
    EXPECT_TRUE(mFile.read()->empty());
    EXPECT_FALSE(exists(PreferencesFile::kName)) << length;
    EXPECT_EQ(test::readFile(mDir.path("preferences.json.corrupt")), whole.substr(0, length));
    ASSERT_EQ(log.lines().size(), 1u) << length;
    EXPECT_THAT(log.lines()[0].text, HasSubstr(mDir.path(PreferencesFile::kName)));
  }
}

TEST_F(PreferencesFileTest, whatIsNoObjectIsSetAside) {
  const test::LogCapture log;
  const std::string zeros(5 << 20, '\0');
  for (const std::string& text : {std::string("[]"), std::string("7"), std::string(100000, '['), zeros}) {
    write(text);
    EXPECT_TRUE(mFile.read()->empty());
    EXPECT_FALSE(exists(PreferencesFile::kName));
  }
  EXPECT_EQ(log.lines().size(), 4u);
  write("{");
  EXPECT_FALSE(mFile.update([](Json::Value& values) { values["a"] = 1; }));
  EXPECT_EQ(valueOf("a"), 1) << "a writer begins anew where the old file is damaged";
  EXPECT_EQ(test::readFile(mDir.path("preferences.json.corrupt")), "{");
}

TEST_F(PreferencesFileTest, aFileThatCannotBeReadIsToldOnceAndLeftAlone) {
  const test::LogCapture log;
  const std::string path = mDir.path(PreferencesFile::kName);
  ASSERT_EQ(mkdir(path.c_str(), 0755), 0);
  EXPECT_EQ(mFile.read(), nullptr);
  EXPECT_EQ(mFile.read(), nullptr);
  EXPECT_EQ(log.lines().size(), 1u);
  EXPECT_TRUE(mFile.update([](Json::Value&) {}));
  ASSERT_EQ(rmdir(path.c_str()), 0);
  write("{\"a\": 1}");
  EXPECT_EQ(valueOf("a"), 1);
  ASSERT_EQ(unlink(path.c_str()), 0);
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  EXPECT_EQ(mFile.read(), nullptr) << "and does not wait for a writer";
  EXPECT_EQ(log.lines().size(), 2u);
}

TEST_F(PreferencesFileTest, aRefusedUpdateSaysWhyAndChangesNothing) {
  write(R"({"a": 1})");
  const auto tooLarge =
      mFile.update([](Json::Value& values) { values["b"] = std::string(Torv::OS::kMaxJsonBytes, 'b'); });
  ASSERT_TRUE(tooLarge);
  EXPECT_THAT(*tooLarge, HasSubstr("larger than"));
  EXPECT_EQ(valueOf("a"), 1);
  PreferencesFile nowhere(mDir.path("missing"));
  const auto missing = nowhere.update([](Json::Value& values) { values["b"] = 1; });
  ASSERT_TRUE(missing);
  EXPECT_THAT(*missing, HasSubstr(mDir.path("missing")));
}

TEST_F(PreferencesFileTest, textsKeepTheirBytes) {
  const std::string bytes("\0 \xff\xfe\" \n \xc3\xa9", 11);
  ASSERT_FALSE(mFile.update([&](Json::Value& values) { values[bytes] = bytes; }));
  EXPECT_EQ((*mFile.read())[bytes].asString(), bytes);
}

TEST_F(PreferencesFileTest, writersOfSeveralProcessesLoseNothing) {
  constexpr int kProcesses = 4;
  constexpr int kWrites = 25;
  for (int process = 0; process < kProcesses; ++process) {
    if (fork() != 0) continue;
    PreferencesFile file(mDir.path());
    for (int i = 0; i < kWrites; ++i) {
      const std::string key = std::to_string(process) + "/" + std::to_string(i);
      if (file.update([&](Json::Value& values) { values[key] = i; })) _exit(1);
    }
    _exit(0);
  }
  for (int process = 0; process < kProcesses; ++process) {
    int status = -1;
    wait(&status);
    EXPECT_EQ(status, 0);
  }
  EXPECT_EQ(mFile.read()->size(), static_cast<unsigned>(kProcesses * kWrites));
}

// Whatever happens to the file, a reader has a whole version of it, or none.
TEST_F(PreferencesFileTest, readersSeeNoTornFile) {
  const test::LogCapture log;
  std::atomic<bool> done = false;
  std::vector<std::thread> readers;
  for (int i = 0; i < 2; ++i) {
    readers.emplace_back([&] {
      while (!done) {
        const auto values = mFile.read();
        if (values == nullptr || values->empty()) continue;
        EXPECT_EQ((*values)["first"], (*values)["last"]);
      }
    });
  }
  const std::string path = mDir.path(PreferencesFile::kName);
  for (int round = 0; round < 200; ++round) {
    const std::string number = std::to_string(round);
    EXPECT_FALSE(replaceFile(path, "{\"first\":" + number + ",\"text\":\"" + std::string(round * 10, 'x') +
                                       "\",\"last\":" + number + "}"));
    if (round % 3 == 0) {
      EXPECT_FALSE(replaceFile(path, "{\"first\":" + number));
    }
    if (round % 5 == 0) unlink(path.c_str());
    if (round % 7 == 0 && mkdir(path.c_str(), 0755) == 0) rmdir(path.c_str());
  }
  done = true;
  for (std::thread& reader : readers) reader.join();
}

}  // namespace
}  // namespace platform
