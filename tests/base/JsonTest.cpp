#include "base/Json.h"

#include <gmock/gmock.h>

#include "support/Result.h"

namespace Torv::Base {
namespace {

std::string repeated(const std::string& text, size_t count) {
  std::string all;
  for (size_t i = 0; i < count; ++i) all += text;
  return all;
}

std::string nested(size_t depth) {
  return std::string(depth, '[') + std::string(depth, ']');
}

TEST(JsonTest, takesWhatTheFileFormatAllowsUpToItsLimits) {
  const std::string brackets(5000, '[');  // inside strings and comments they open nothing
  for (const std::string& text :
       {std::string("7"), std::string("\xef\xbb\xbf{}"), std::string("{} and more"),
        std::string("// why\n{\"a\": 1, /* one */ }"), nested(kMaxJsonDepth),
        "[\"" + brackets + "\\\"" + brackets + "\\\\\", 1]", "/*" + brackets + "*/[1] // " + brackets,
        "[0" + repeated(",0", kMaxJsonValues - 3) + "]", "\"" + std::string(kMaxJsonBytes - 2, 'a') + "\""}) {
    EXPECT_EQ(test::errorOf(parseJson(text)), "") << text.substr(0, 50);
  }
}

TEST(JsonTest, refusesAnyOtherTextInOneLineWithThePlace) {
  std::vector<std::string> texts = {"",     " \n", "{",   "{a: 1}", "/*", "{\"a\": 1e400}",
                                    "\xff", "/",   "[\"", "\"\\"};
  texts.push_back(nested(kMaxJsonDepth + 1));
  texts.push_back(repeated("{\"a\":", 100000));
  texts.push_back("[0" + repeated(",0", kMaxJsonValues) + "]");
  texts.push_back("\"" + std::string(kMaxJsonBytes - 1, 'a') + "\"");
  // No string or comment ends later than the reader thinks, which throws at 1,000 levels.
  for (const char* start : {"", "/**//**/", "/* *//* */", "//\r", "//\n", "[\"\\\\\",", "/*/ */"}) {
    texts.push_back(start + std::string(1500, '['));
  }
  for (const std::string& text : texts) {
    const std::string error = test::errorOf(parseJson(text));
    EXPECT_NE(error, "") << text.substr(0, 50);
    EXPECT_EQ(error.find('\n'), std::string::npos) << error;
  }
  EXPECT_THAT(test::errorOf(parseJson("{\n  \"a\": x\n}")), testing::HasSubstr("Line 2"));
}

TEST(JsonTest, theLastOfTwoMembersCountsAndOnlyObjectsHaveAny) {
  const auto root = parseJson(R"({"a": {"b": 1}, "a": 5})");
  EXPECT_EQ(findMember(*root, "a")->asInt(), 5);
  EXPECT_EQ(root->size(), 1u);
  for (const Json::Value& other : {Json::Value("a"), Json::Value(Json::arrayValue), Json::Value()}) {
    EXPECT_EQ(findMember(other, "a"), nullptr);
  }
}

}  // namespace
}  // namespace Torv::Base
