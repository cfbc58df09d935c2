#include <string>

#include <gtest/gtest.h>

#include "service/BundlePacking.h"

namespace Torv::OS::Diagnostics {
namespace {

using android::String16;

// Returns the UTF-16 text that a bundle carries for these bytes.
String16 carried(const std::string& bytes) {
  android::os::PersistableBundle bundle;
  packMapToBundle({{"key", bytes}}, &bundle);
  String16 text;
  EXPECT_TRUE(bundle.getString(String16("key"), &text));
  return text;
}

TEST(BundlePackingTest, wellFormedTextIsCarriedUnchanged) {
  EXPECT_EQ(carried(""), String16(u""));
  EXPECT_EQ(carried("Gr\u00fc\u00dfe \u65e5\u672c"), String16(u"Gr\u00fc\u00dfe \u65e5\u672c"));
  EXPECT_EQ(carried("\U0001f600\U0010ffff"), String16(u"\U0001f600\U0010ffff"));
  EXPECT_EQ(carried(std::string("a\0b", 3)), String16(u"a\0b", 3));
}

// Short and long text take different memory on the way; 256 bytes are the last short text.
TEST(BundlePackingTest, textOfAnyLengthIsCarriedWhole) {
  for (const size_t size : {255, 256, 257, 10'000}) {
    const std::string text(size, 'x');
    EXPECT_EQ(carried(text), String16(text.data(), size)) << size;
    EXPECT_EQ(carried(text + "\u65e5").size(), size + 1) << size;
    EXPECT_EQ(carried(text + "\xe6\x97"), String16(text.data(), size) + String16(u"\ufffd\ufffd")) << size;
  }
}

// An application that cuts its text at a number of bytes must not lose all of it.
TEST(BundlePackingTest, onlyMalformedBytesAreReplaced) {
  EXPECT_EQ(carried("caf\xc3"), String16(u"caf\ufffd"));
  EXPECT_EQ(carried("\xf0\x9f\x98"), String16(u"\ufffd\ufffd\ufffd"));
  EXPECT_EQ(carried("\xe2z\xc3\xa9"), String16(u"\ufffdz\u00e9"));
  EXPECT_EQ(carried("\xc0\xaf"), String16(u"\ufffd\ufffd")) << "overlong";
  EXPECT_EQ(carried("\xe0\x80\xaf"), String16(u"\ufffd\ufffd\ufffd")) << "overlong";
  EXPECT_EQ(carried("\xed\xa0\x80"), String16(u"\ufffd\ufffd\ufffd")) << "surrogate";
  EXPECT_EQ(carried("\xf4\x90\x80\x80"), String16(u"\ufffd\ufffd\ufffd\ufffd")) << "beyond Unicode";
}

}  // namespace
}  // namespace Torv::OS::Diagnostics
