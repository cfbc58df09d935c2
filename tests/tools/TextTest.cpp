#include "text/Text.h"

#include <clocale>

#include <gtest/gtest.h>

using text::cutTo;
using text::printable;

[[maybe_unused]] static const char* const kLocale = setlocale(LC_CTYPE, "C.UTF-8");

TEST(TextTest, escapesWhatATerminalWouldActOn) {
  EXPECT_EQ(printable("a\x1b[31m\n\t\r\x7f\u009b31m"), "a\\x1b[31m\\n\\t\\r\\x7f\\x9b31m");
  EXPECT_EQ(printable("\u202eabc\u2066\u2028\u200f\u061c"), "\\u202eabc\\u2066\\u2028\\u200f\\u061c");
  EXPECT_EQ(printable("\xff\xc3(\xe2\x82"), "\\xff\\xc3(\\xe2\\x82");
  EXPECT_EQ(printable(std::string_view("\0x", 2)), "\\x00x");
  EXPECT_EQ(printable("Größe 漢字 שלום"), "Größe 漢字 שלום");
}

TEST(TextTest, countsColumnsAndCutsOrReplacesWholeCharacters) {
  EXPECT_EQ(text::columnsOf("a漢é"), 4u);
  EXPECT_EQ(cutTo(4, "abcd"), "abcd");
  EXPECT_EQ(cutTo(4, "abcde"), "abc…");
  EXPECT_EQ(cutTo(4, "漢字漢"), "漢…");
  EXPECT_EQ(cutTo(4, "abcdefgh", "~"), "abc~");
  EXPECT_EQ(cutTo(0, "abc"), "");
  EXPECT_EQ(text::ascii("Größe 漢"), "Gr??e ?");
}

TEST(TextTest, keepsOnlyAFewOfManyCombiningMarks) {
  std::string marks = "a";
  for (int i = 0; i < 2000; ++i) marks += "\u0301";
  EXPECT_LT(cutTo(10, marks + "b").size(), 20u);
  EXPECT_EQ(text::columnsOf(cutTo(10, marks + "b")), 2u);
}
