#include "TextScanner.h"

#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

using namespace Torv::OS::Diagnostics;
using namespace std::string_literals;

namespace {

// What a stream makes of up to three numbers in `text`, and whether it still stands after them.
template <typename Unsigned>
std::vector<Unsigned> readByStream(const std::string& text) {
  std::istringstream stream(text);
  std::vector<Unsigned> values(3, 0);
  const bool good = !(stream >> values[0] >> values[1] >> values[2]).fail();
  values.push_back(good);
  return values;
}

template <typename Unsigned>
std::vector<Unsigned> readByScanner(std::string_view text) {
  std::vector<Unsigned> values(3, 0);
  const bool good = nextNumber(text, values[0]) && nextNumber(text, values[1]) && nextNumber(text, values[2]);
  values.push_back(good);
  return values;
}

}  // namespace

TEST(TextScanner, ReadsNumbersAsAStreamDoes) {
  const std::vector<std::string> texts = {
      "",
      " ",
      "x",
      "1x",
      "1 2 3",
      "1\t\n\v\f\r2 3 4",
      "1 x 3",
      "-1 -0 +7",
      "+-5",
      "- 5",
      "-",
      "007 08 09",
      "0x10 5 6",
      "1,000 2 3",
      "3.5 2 1",
      "1\0002 3"s,
      "\xff 1 2",
      "4294967295 4294967296 1",
      "-4294967295 -4294967296 1",
      "18446744073709551615 18446744073709551616 1",
      "-18446744073709551615 5 -18446744073709551616",
      "1844674407370955161599 1 1",
      "1234567890123456789012345678901234567890 1 1",
      "0000000000000000000000000000000000000001 1 1",
  };
  for (const std::string& text : texts) {
    EXPECT_EQ(readByScanner<uint32_t>(text), readByStream<uint32_t>(text)) << text;
    EXPECT_EQ(readByScanner<uint64_t>(text), readByStream<uint64_t>(text)) << text;
  }
}

TEST(TextScanner, SplitsLinesAndWordsAsStreamsDo) {
  for (const std::string& text :
       {""s, "\n"s, "\n\n"s, "a"s, "a\n"s, "a\n\nb"s, " a b \n\tc\n"s, "a\0b c\n\0"s, "\r\n"s}) {
    std::vector<std::string> expected;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
      expected.push_back(line);
      std::istringstream words(line);
      for (std::string word; words >> word;) expected.push_back("w:" + word);
    }

    std::vector<std::string> found;
    std::string_view rest = text;
    for (std::string_view line; nextLine(rest, line);) {
      found.emplace_back(line);
      for (std::string_view word = nextWord(line); !word.empty(); word = nextWord(line)) {
        found.push_back("w:" + std::string(word));
      }
    }
    EXPECT_EQ(found, expected) << text;
  }
}
