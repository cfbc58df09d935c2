#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/system_properties.h>
#include <unistd.h>

#include "properties/PropertyFile.h"
#include "support/LogCapture.h"
#include "support/TempDir.h"

namespace {

using platform::findProperty;
using platform::parseProperties;
using platform::setProperty;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Optional;
using testing::Pair;

class PropertiesTest : public testing::Test {
 protected:
  std::string file() const { return test::readFile(mDirectory.path("properties")); }
  void write(std::string_view text) const { mDirectory.write("properties", text); }

  test::LogCapture mLog;
  test::TempDir mDirectory;
  test::ScopedEnv mEnvironment{"TORV_RUNTIME_DIR", mDirectory.path()};
};

// The value through the read callback; nothing where the property is not found.
std::optional<std::string> read(const char* name) {
  const prop_info* property = __system_property_find(name);
  if (property == nullptr) return std::nullopt;
  std::optional<std::string> text;
  __system_property_read_callback(
      property,
      [](void* cookie, const char*, const char* value, uint32_t) {
        *static_cast<std::optional<std::string>*>(cookie) = value;
      },
      &text);
  return text;
}

uint32_t serialOf(const prop_info* property) {
  uint32_t serial = 0;
  __system_property_read_callback(
      property,
      [](void* cookie, const char*, const char*, uint32_t now) { *static_cast<uint32_t*>(cookie) = now; },
      &serial);
  return serial;
}

TEST_F(PropertiesTest, ReadsTheFileAsItIsNow) {
  EXPECT_EQ(read("a.b"), std::nullopt) << "no file";
  write("a.b=1");
  EXPECT_THAT(read("a.b"), Optional(std::string("1")));
  const prop_info* kept = __system_property_find("a.b");
  const uint32_t serial = serialOf(kept);
  write("a.b=2");
  EXPECT_THAT(read("a.b"), Optional(std::string("2")));
  EXPECT_EQ(__system_property_find("a.b"), kept);
  EXPECT_NE(serialOf(kept), serial);
  EXPECT_EQ(serialOf(kept) >> 24, 1U);
  write("");
  EXPECT_EQ(__system_property_find("a.b"), nullptr);
  EXPECT_EQ(serialOf(kept) >> 24, 0U) << "what is gone reads as empty";
}

TEST_F(PropertiesTest, TakesLinesAsBuildPropDoes) {
  const std::string longName(300, 'n');
  const std::string longValue(1 << 20, 'v');
  const auto properties =
      parseProperties("# comment=1\n\n  indented=1\ncrlf=a\r\nspace= 1 \nequals=a=b\nempty=\n" + longName +
                      "=1\nro.long=" + longValue + "\ntwice=1\ntwice=2\nlast=x");
  EXPECT_THAT(properties, testing::UnorderedElementsAre(
                              Pair("indented", "1"), Pair("crlf", "a"), Pair("space", " 1 "),
                              Pair("equals", "a=b"), Pair("empty", ""), Pair(longName, "1"),
                              Pair("ro.long", longValue), Pair("twice", "2"), Pair("last", "x")));
  EXPECT_TRUE(mLog.lines().empty());
}

TEST_F(PropertiesTest, IgnoresBadLinesWithOneLogLineEach) {
  const std::string text = "no equals here\n=1\nbad name=1\n.dot=1\na..b=1\nnul=a" + std::string(1, '\0') +
                           "b\nlong=" + std::string(92, 'x') + "\nfits=" + std::string(91, 'x') + "\n";
  for (int i = 0; i < 3; i++) {
    EXPECT_THAT(parseProperties(text), ElementsAre(Pair("fits", std::string(91, 'x'))));
  }
  const std::vector<std::string> said = mLog.texts(ANDROID_LOG_WARN);
  EXPECT_EQ(said.size(), 7U);
  EXPECT_THAT(said, testing::Contains(HasSubstr("/properties: ignoring the line \"a..b=1\": the name")));
}

TEST_F(PropertiesTest, AFileCutAnywhereGivesWhatIsWhole) {
  const std::string text = "first=1\r\n# c\nro.second=two=2\nthird=3\n";
  for (size_t size = 0; size <= text.size(); size++) {
    write(text.substr(0, size));
    constexpr size_t kFirstWhole = 7;
    EXPECT_EQ(read("first").value_or("") == "1", size >= kFirstWhole) << size;
    const std::string second = read("ro.second").value_or("");
    EXPECT_EQ(second, std::string("two=2").substr(0, second.size())) << size;
    constexpr size_t kSecondWhole = 28;
    EXPECT_EQ(second.size() == 5, size >= kSecondWhole) << size;
  }
}

TEST_F(PropertiesTest, AFileThatCannotBeReadIsAnEmptyAreaAndSaysSoOnce) {
  std::filesystem::create_directory(mDirectory.path("properties"));
  EXPECT_EQ(read("a"), std::nullopt);
  EXPECT_EQ(read("a"), std::nullopt);
  EXPECT_THAT(mLog.texts(ANDROID_LOG_WARN),
              ElementsAre(HasSubstr("cannot read " + mDirectory.path("properties"))));
  EXPECT_THAT(setProperty("a", "1"), Optional(HasSubstr("cannot read")));
}

TEST_F(PropertiesTest, GetCopiesWhatFitsItsBuffer) {
  write("short=abc\nro.fits=" + std::string(91, 'x') + "\nro.long=" + std::string(92, 'x') + "\n");
  char value[PROP_VALUE_MAX];
  EXPECT_EQ(__system_property_get("short", value), 3);
  EXPECT_STREQ(value, "abc");
  EXPECT_EQ(__system_property_get("ro.fits", value), 91);
  EXPECT_EQ(__system_property_get("absent", value), 0);
  EXPECT_STREQ(value, "");
  EXPECT_EQ(__system_property_get("ro.long", value), 50);
  EXPECT_STREQ(value, "Must use __system_property_read_callback() to read");
  EXPECT_EQ(serialOf(__system_property_find("ro.long")) & (1U << 16), 1U << 16);
  EXPECT_EQ(read("ro.long")->size(), 92U);
}

TEST_F(PropertiesTest, SetRewritesItsLineAndNoOther) {
  write("# head\na=1\nb=1\na=2\n\njunk\nlast=x");
  EXPECT_EQ(__system_property_set("a", "3"), 0);
  EXPECT_EQ(__system_property_set("c", nullptr), 0);
  EXPECT_EQ(file(), "# head\na=1\nb=1\na=3\n\njunk\nlast=x\nc=\n");
  EXPECT_EQ(setProperty("ro.once", std::string(5000, 'x')), std::nullopt);
  EXPECT_THAT(setProperty("ro.once", "y"), Optional(HasSubstr("ro.once is read-only")));
  EXPECT_EQ(read("ro.once")->size(), 5000U);
}

TEST_F(PropertiesTest, SetRefusesWhatTheDeviceOrTheFileCannotHold) {
  for (const auto& [name, value] :
       std::vector<std::pair<std::string, std::string>>{{"", "1"},
                                                        {".a", "1"},
                                                        {"a.", "1"},
                                                        {"a..b", "1"},
                                                        {"a b", "1"},
                                                        {"a=b", "1"},
                                                        {"ä", "1"},
                                                        {"a", std::string(92, 'x')},
                                                        {"a", "\xff"},
                                                        {"a", "\xc3"},
                                                        {"a", "x\ny"},
                                                        {"a", "x\r"}}) {
    EXPECT_NE(setProperty(name, value), std::nullopt) << name << " = " << value;
  }
  EXPECT_EQ(setProperty("a", std::string(91, 'x')), std::nullopt);
  EXPECT_EQ(setProperty("A-z_0.9@x:y", " größe "), std::nullopt);
  EXPECT_THAT(read("A-z_0.9@x:y"), Optional(std::string(" größe ")));
  EXPECT_EQ(__system_property_set("a b", "1"), -1);
  const test::ScopedEnv nowhere("TORV_RUNTIME_DIR", mDirectory.path("none"));
  EXPECT_THAT(setProperty("a", "1"), Optional(HasSubstr(mDirectory.path("none"))));
}

TEST_F(PropertiesTest, ForeachNamesEachPropertyOnce) {
  write("b=1\na=2\nb=3\n");
  std::string seen;
  const auto visit = [](const prop_info* property, void* cookie) {
    const auto append = [](void* text, const char* name, const char* value, uint32_t) {
      *static_cast<std::string*>(text) += std::string(name) + value + ";";
    };
    __system_property_read_callback(property, append, cookie);
  };
  EXPECT_EQ(__system_property_foreach(visit, &seen), 0);
  EXPECT_EQ(seen, "a2;b3;");
}

// Writers lose nothing of each other's, and no reader sees a part of a file.
TEST_F(PropertiesTest, WritersAndReadersDoNotDisturbEachOther) {
  constexpr int kWrites = 100;
  write("ro.guard=" + std::string(1000, 'g') + "\n");
  std::vector<std::thread> writers;
  for (const char* name : {"one", "two", "three"}) {
    writers.emplace_back([name] {
      for (int i = 0; i < kWrites; i++) {
        EXPECT_EQ(__system_property_set((name + std::string(".") + std::to_string(i)).c_str(), "1"), 0);
      }
    });
  }
  for (int i = 0; i < kWrites; i++) EXPECT_EQ(read("ro.guard").value_or("").size(), 1000U);
  for (std::thread& writer : writers) writer.join();
  EXPECT_EQ(parseProperties(file()).size(), 3 * kWrites + 1U);
}

TEST_F(PropertiesTest, RootLeavesTheFileToItsOwner) {
  if (getuid() != 0) GTEST_SKIP() << "only root writes other users' files";
  constexpr uid_t kOwner = 4711;
  ASSERT_EQ(chown(mDirectory.path().c_str(), kOwner, kOwner), 0);
  const auto ownerOf = [&](const char* name) {
    struct stat status {};
    return stat(mDirectory.path(name).c_str(), &status) == 0 ? status.st_uid : 0;
  };
  ASSERT_EQ(setProperty("a", "1"), std::nullopt);
  EXPECT_EQ(ownerOf("properties"), kOwner) << "a new file is the directory's owner's";
  EXPECT_EQ(ownerOf("properties.lock"), kOwner);
  ASSERT_EQ(setProperty("a", "2"), std::nullopt);
  EXPECT_EQ(ownerOf("properties"), kOwner);
}

}  // namespace
