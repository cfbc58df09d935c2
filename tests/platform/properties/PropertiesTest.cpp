#include <filesystem>
#include <thread>

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/system_properties.h>

#include "properties/PropertyFile.h"
#include "support/LogCapture.h"
#include "support/Result.h"
#include "support/TempDir.h"

namespace platform {
namespace {

using test::errorOf;
using testing::HasSubstr;

class PropertiesTest : public testing::Test {
 protected:
  void write(std::string_view text) const { mDirectory.write("properties", text); }

  test::LogCapture mLog;
  test::HostDir mDirectory;
  const std::string mLongest = std::string(91, 'x');
};

std::string read(const char* name) {
  std::string value = "none";
  const auto keep = [](void* cookie, const char*, const char* read, uint32_t) {
    *static_cast<std::string*>(cookie) = read;
  };
  const prop_info* property = __system_property_find(name);
  if (property != nullptr) __system_property_read_callback(property, keep, &value);
  return value;
}

TEST_F(PropertiesTest, takesLinesAsBuildPropDoesAndLogsEachBadOneOnce) {
  const std::string longName(300, 'n');
  const std::string longValue(1 << 19, 'v');
  const std::string good =
      "# comment=1\n\n  indented=1\ncrlf=a\r\nspace= 1 \nequals=a=b\nempty=\nfits=" + mLongest + "\n" +
      longName + "=1\nro.long=" + longValue + "\ntwice=1\ntwice=2\nlast=x";
  const std::string bad = "\nno equals here\n=1\nbad name=1\n.dot=1\na..b=1\nnul=a" + std::string(1, '\0') +
                          "b\nlong=x" + mLongest;
  const PropertyMap expected = {
      {"indented", "1"},  {"crlf", "a"},   {"space", " 1 "},       {"equals", "a=b"}, {"empty", ""},
      {"fits", mLongest}, {longName, "1"}, {"ro.long", longValue}, {"twice", "2"},    {"last", "x"}};
  for (const std::string& text : {good, good + bad, good + bad, good, "\n" + good + bad}) {
    write(text);
    EXPECT_EQ(parseProperties(readPropertyFile()), expected);
    EXPECT_EQ(read("twice"), "2");
    for (const char* name : {"", "a..b", "long"}) EXPECT_EQ(read(name), "none");
  }
  EXPECT_EQ(mLog.lines().size(), 7U);
  EXPECT_THAT(mLog.texts(ANDROID_LOG_WARN),
              testing::Contains(HasSubstr("/properties: ignoring the line \"a..b=1\": a name")));
}

TEST_F(PropertiesTest, aFileThatCannotBeReadIsAnEmptyAreaAndSaysSoOnce) {
  std::filesystem::create_directory(mDirectory.path("properties"));
  for (int i = 0; i < 2; i++) EXPECT_EQ(read("a"), "none");
  EXPECT_THAT(mLog.texts(ANDROID_LOG_WARN), testing::ElementsAre(HasSubstr(mDirectory.path("properties"))));
  EXPECT_THAT(errorOf(setProperty("a", "1")), HasSubstr("is not a regular file"));
}

TEST_F(PropertiesTest, aChangeKeepsTheOtherLines) {
  write("# head\na=1\nb=1\na=2\n\njunk\nlast=x");
  EXPECT_EQ(errorOf(setProperty("a", "3")), "");
  EXPECT_EQ(errorOf(setProperty("c", "")), "");
  EXPECT_EQ(test::readFile(mDirectory.path("properties")), "# head\na=1\nb=1\na=3\n\njunk\nlast=x\nc=\n");
  EXPECT_EQ(errorOf(unsetProperty("a")), "");
  EXPECT_EQ(test::readFile(mDirectory.path("properties")), "# head\nb=1\n\njunk\nlast=x\nc=\n");
  EXPECT_EQ(errorOf(unsetProperty("a")), "a is not set");
}

TEST_F(PropertiesTest, setRefusesWhatTheDeviceOrTheFileCannotHold) {
  for (const char* name : {"", ".a", "a.", "a..b", "a b", "a=b", "ä"}) {
    EXPECT_NE(errorOf(setProperty(name, "1")), "") << name;
  }
  for (const std::string& value :
       {"x" + mLongest, std::string("\xff"), std::string("\xc3"), std::string("x\ny"), std::string("x\r")}) {
    EXPECT_NE(errorOf(setProperty("a", value)), "") << value;
  }
  EXPECT_EQ(errorOf(setProperty("a", mLongest)), "");
  EXPECT_EQ(errorOf(setProperty("A-z_0.9@x:y", " größe ")), "");
  EXPECT_EQ(read("A-z_0.9@x:y"), " größe ");
  EXPECT_EQ(errorOf(setProperty("ro.once", std::string(5000, 'x'))), "");
  EXPECT_THAT(errorOf(setProperty("ro.once", "y")), HasSubstr("ro.once is read-only"));
  EXPECT_THAT(errorOf(unsetProperty("ro.once")), HasSubstr("ro.once is read-only"));
  EXPECT_EQ(read("ro.once").size(), 5000U);
  const test::ScopedEnv nowhere("TORV_RUNTIME_DIR", mDirectory.path("none"));
  EXPECT_THAT(errorOf(setProperty("a", "1")), HasSubstr(mDirectory.path("none")));
}

// Writers lose nothing of each other's, and no reader sees a part of a file.
TEST_F(PropertiesTest, writersAndReadersDoNotDisturbEachOther) {
  write("ro.guard=" + std::string(1000, 'g') + "\n");
  std::vector<std::thread> writers;
  for (const std::string name : {"one.", "two.", "three."}) {
    writers.emplace_back([name] {
      for (int i = 0; i < 100; i++) EXPECT_EQ(errorOf(setProperty(name + std::to_string(i), "1")), "");
    });
  }
  for (int i = 0; i < 100; i++) EXPECT_EQ(read("ro.guard").size(), 1000U);
  for (std::thread& writer : writers) writer.join();
  EXPECT_EQ(parseProperties(readPropertyFile()).size(), 301U);
}

TEST_F(PropertiesTest, rootLeavesTheFileToItsOwner) {
  if (getuid() != 0) GTEST_SKIP() << "only root writes other users' files";
  constexpr uid_t kOwner = 4711;
  ASSERT_EQ(chown(mDirectory.path().c_str(), kOwner, kOwner), 0);
  for (const char* value : {"1", "2"}) {
    ASSERT_EQ(errorOf(setProperty("a", value)), "");
    for (const char* name : {"properties", "properties.lock"}) {
      struct stat status {};
      ASSERT_EQ(stat(mDirectory.path(name).c_str(), &status), 0);
      EXPECT_EQ(status.st_uid, kOwner) << name << " at write " << value;
    }
  }
}

}  // namespace
}  // namespace platform
