#include "os/Json.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <android-base/unique_fd.h>

#include "support/TempDir.h"

using Torv::OS::findMember;
using Torv::OS::kMaxJsonBytes;
using Torv::OS::kMaxJsonDepth;
using Torv::OS::kMaxJsonValues;
using Torv::OS::parseJson;

namespace {

std::string repeated(const std::string& text, size_t count) {
  std::string all;
  all.reserve(text.size() * count);
  for (size_t i = 0; i < count; ++i) all += text;
  return all;
}

bool parses(const std::string& text) {
  std::string error;
  const bool parsed = parseJson(text, error).has_value();
  EXPECT_EQ(parsed, error.empty()) << error;
  EXPECT_EQ(error.find('\n'), std::string::npos);
  return parsed;
}

TEST(JsonTest, takesWhatTheFileFormatAllows) {
  EXPECT_TRUE(parses("{}"));
  EXPECT_TRUE(parses("[1, \"two\", null, -0, true]"));
  EXPECT_TRUE(parses("7"));
  EXPECT_TRUE(parses("\xef\xbb\xbf{}"));
  EXPECT_TRUE(parses("// why\n{\"a\": 1, /* one */ }"));
  EXPECT_TRUE(parses("{} and more"));
  EXPECT_TRUE(parses("{\"a\": \"\xff\xfe\"}"));  // not UTF-8, and nobody's business here
}

TEST(JsonTest, refusesWithAPlace) {
  for (const char* text : {"", " \n", "{", "[1 2]", "{\"a\"}", "{a: 1}", "{'a': 1}", "nul", "\"\\ud800\"",
                           "/*", "{\"a\": 1e400}", "\xff", "/", "[\"", "\"\\"}) {
    EXPECT_FALSE(parses(text)) << text;
  }
  std::string error;
  EXPECT_FALSE(parseJson("{\n  \"a\": x\n}", error));
  EXPECT_NE(error.find("Line 2"), std::string::npos) << error;
}

TEST(JsonTest, theLastOfTwoMembersCounts) {
  std::string error;
  const auto root = parseJson(R"({"a": {"b": 1}, "a": 5})", error);
  ASSERT_TRUE(root);
  EXPECT_EQ(findMember(*root, "a")->asInt(), 5);
  EXPECT_EQ(root->size(), 1u);
}

TEST(JsonTest, findMemberAsksNothingOfOtherKinds) {
  const Json::Value text("a");
  const Json::Value array(Json::arrayValue);
  EXPECT_EQ(findMember(text, "a"), nullptr);
  EXPECT_EQ(findMember(array, "0"), nullptr);
  EXPECT_EQ(findMember(Json::Value(), "a"), nullptr);
}

TEST(JsonTest, depthIsLimitedAsTheReaderCountsIt) {
  EXPECT_TRUE(parses(repeated("[", kMaxJsonDepth) + repeated("]", kMaxJsonDepth)));
  EXPECT_FALSE(parses(repeated("[", kMaxJsonDepth + 1) + repeated("]", kMaxJsonDepth + 1)));
  EXPECT_FALSE(parses(repeated("[", 100000)));
  EXPECT_FALSE(parses(repeated("{\"a\":", 100000)));
  // Brackets inside strings and comments open nothing ...
  const std::string brackets = repeated("[", 5000);
  EXPECT_TRUE(parses("[\"" + brackets + "\\\"" + brackets + "\\\\\", 1]"));
  EXPECT_TRUE(parses("/*" + brackets + "*/[1] // " + brackets));
  // ... and neither ends later than the reader thinks, which throws at 1,000 levels.
  const std::string deep = repeated("[", 1500);
  EXPECT_FALSE(parses("/**//**/" + deep));
  EXPECT_FALSE(parses("/* *//* */" + deep));
  EXPECT_FALSE(parses("//\r" + deep));
  EXPECT_FALSE(parses("//\n" + deep));
  EXPECT_FALSE(parses("[\"\\\\\"," + deep));
  EXPECT_FALSE(parses("/*/ */" + deep));
}

TEST(JsonTest, countsAndSizesAreLimited) {
  EXPECT_TRUE(parses("[0" + repeated(",0", kMaxJsonValues - 3) + "]"));
  EXPECT_FALSE(parses("[0" + repeated(",0", kMaxJsonValues) + "]"));
  EXPECT_TRUE(parses("\"" + std::string(kMaxJsonBytes - 2, 'a') + "\""));
  EXPECT_FALSE(parses("\"" + std::string(kMaxJsonBytes - 1, 'a') + "\""));
  EXPECT_FALSE(parses(std::string(kMaxJsonBytes, '\0')));
}

TEST(JsonTest, readingStopsPastTheLimit) {
  const android::base::unique_fd endless(open("/dev/zero", O_RDONLY | O_CLOEXEC));
  const auto zeros = Torv::OS::readJsonText(endless.get());
  ASSERT_TRUE(zeros);
  EXPECT_EQ(zeros->size(), kMaxJsonBytes + 1);

  const test::TempDir dir;
  const android::base::unique_fd directory(open(dir.path().c_str(), O_RDONLY | O_CLOEXEC));
  EXPECT_FALSE(Torv::OS::readJsonText(directory.get()));

  const std::string text(100000, 'x');  // more than one read takes
  const android::base::unique_fd file(open(dir.write("file", text).c_str(), O_RDONLY | O_CLOEXEC));
  EXPECT_EQ(Torv::OS::readJsonText(file.get()), text);
}

}  // namespace
