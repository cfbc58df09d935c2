#include "service/BundlePacking.h"

#include <string>

#include <gtest/gtest.h>

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

// An application that cuts its text at a number of bytes must not lose all of it.
TEST(BundlePackingTest, textIsCarriedWholeAndOnlyMalformedBytesAreReplaced) {
  std::vector<std::pair<std::string, std::u16string>> cases = {
      {"", u""},
      {"Gr\u00fc\u00dfe \u65e5\u672c", u"Gr\u00fc\u00dfe \u65e5\u672c"},
      {"\U0001f600\U0010ffff", u"\U0001f600\U0010ffff"},
      {std::string("a\0b", 3), std::u16string(u"a\0b", 3)},
      {"caf\xc3", u"caf\ufffd"},
      {"\xf0\x9f\x98", u"\ufffd\ufffd\ufffd"},
      {"\xe2z\xc3\xa9", u"\ufffdz\u00e9"},
      {"\xc0\xaf", u"\ufffd\ufffd"},                     // overlong
      {"\xe0\x80\xaf", u"\ufffd\ufffd\ufffd"},           // overlong
      {"\xed\xa0\x80", u"\ufffd\ufffd\ufffd"},           // a surrogate
      {"\xf4\x90\x80\x80", u"\ufffd\ufffd\ufffd\ufffd"}  // beyond Unicode
  };
  // Short and long text take different memory on the way; 256 bytes are the last short text.
  for (const size_t size : {255, 256, 257, 10'000}) {
    const std::string bytes(size, 'x');
    const std::u16string units(size, u'x');
    cases.emplace_back(bytes, units);
    cases.emplace_back(bytes + "\u65e5", units + u"\u65e5");
    cases.emplace_back(bytes + "\xe6\x97", units + u"\ufffd\ufffd");
  }
  for (const auto& [bytes, units] : cases) {
    EXPECT_EQ(carried(bytes), String16(units.data(), units.size())) << bytes.size() << " " << bytes;
  }
}

}  // namespace
}  // namespace Torv::OS::Diagnostics
