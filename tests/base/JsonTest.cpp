#include "base/Json.h"

#include <gtest/gtest.h>

namespace Torv::Base {
namespace {

std::string repeated(const std::string& text, size_t count) {
  std::string all;
  for (size_t i = 0; i < count; ++i) all += text;
  return all;
}

bool parses(const std::string& text) {
  const auto root = parseJson(text);
  if (root.ok()) return true;
  EXPECT_NE(root.error().message(), "");
  EXPECT_EQ(root.error().message().find('\n'), std::string::npos) << root.error();
  return false;
}

TEST(JsonTest, takesWhatTheFileFormatAllowsAndRefusesTheRestWithAPlace) {
  for (const char* text : {"7", "\xef\xbb\xbf{}", "{} and more", "// why\n{\"a\": 1, /* one */ }"}) {
    EXPECT_TRUE(parses(text)) << text;
  }
  for (const char* text : {"", " \n", "{", "{a: 1}", "/*", "{\"a\": 1e400}", "\xff", "/", "[\"", "\"\\"}) {
    EXPECT_FALSE(parses(text)) << text;
  }
  const auto root = parseJson("{\n  \"a\": x\n}");
  ASSERT_FALSE(root.ok());
  EXPECT_NE(root.error().message().find("Line 2"), std::string::npos) << root.error();
}

TEST(JsonTest, theLastOfTwoMembersCountsAndOnlyObjectsHaveAny) {
  const auto root = parseJson(R"({"a": {"b": 1}, "a": 5})");
  ASSERT_TRUE(root.ok());
  EXPECT_EQ(findMember(*root, "a")->asInt(), 5);
  EXPECT_EQ(root->size(), 1u);
  for (const Json::Value& other : {Json::Value("a"), Json::Value(Json::arrayValue), Json::Value()}) {
    EXPECT_EQ(findMember(other, "a"), nullptr);
  }
}

TEST(JsonTest, depthIsLimitedAsTheReaderCountsIt) {
  EXPECT_TRUE(parses(std::string(kMaxJsonDepth, '[') + std::string(kMaxJsonDepth, ']')));
  EXPECT_FALSE(parses(std::string(kMaxJsonDepth + 1, '[') + std::string(kMaxJsonDepth + 1, ']')));
  EXPECT_FALSE(parses(repeated("{\"a\":", 100000)));
  // Brackets inside strings and comments open nothing ...
  const std::string brackets(5000, '[');
  EXPECT_TRUE(parses("[\"" + brackets + "\\\"" + brackets + "\\\\\", 1]"));
  EXPECT_TRUE(parses("/*" + brackets + "*/[1] // " + brackets));
  // ... and neither ends later than the reader thinks, which throws at 1,000 levels.
  for (const char* start : {"", "/**//**/", "/* *//* */", "//\r", "//\n", "[\"\\\\\",", "/*/ */"}) {
    EXPECT_FALSE(parses(start + std::string(1500, '['))) << start;
  }
}

TEST(JsonTest, countsAndSizesAreLimited) {
  EXPECT_TRUE(parses("[0" + repeated(",0", kMaxJsonValues - 3) + "]"));
  EXPECT_FALSE(parses("[0" + repeated(",0", kMaxJsonValues) + "]"));
  EXPECT_TRUE(parses("\"" + std::string(kMaxJsonBytes - 2, 'a') + "\""));
  EXPECT_FALSE(parses("\"" + std::string(kMaxJsonBytes - 1, 'a') + "\""));
}

}  // namespace
}  // namespace Torv::Base
