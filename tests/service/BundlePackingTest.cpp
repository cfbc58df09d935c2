#include <string>

#include <gtest/gtest.h>

#include "service/BundlePacking.h"

namespace Torv::OS::Diagnostics {
namespace {

using android::String16;
using android::os::PersistableBundle;

PersistableBundle strings(std::initializer_list<std::pair<const char*, const char*>> entries) {
  PersistableBundle bundle;
  for (const auto& [key, value] : entries) bundle.putString(String16(key), String16(value));
  return bundle;
}

PersistableBundle process(int pid, const PersistableBundle& states) {
  PersistableBundle bundle;
  bundle.putInt(String16("processId"), pid);
  bundle.putPersistableBundle(String16("ApplicationStateData"), states);
  return bundle;
}

// The String16 that text with these bytes is carried as.
String16 carried(const std::string& bytes) {
  PersistableBundle bundle;
  packMapToBundle({{"key", bytes}}, &bundle);
  String16 text;
  EXPECT_TRUE(bundle.getString(String16("key"), &text));
  return text;
}

TEST(BundlePackingTest, ProcessesAreKeyedByTheirDecimalPid) {
  PersistableBundle bundle;
  packAllProcessStatesToBundle({{1234, {{"screen", "home"}, {"action", "tap"}}}, {-5, {}}}, &bundle);
  PersistableBundle expected;
  expected.putPersistableBundle(String16("1234"),
                                process(1234, strings({{"screen", "home"}, {"action", "tap"}})));
  expected.putPersistableBundle(String16("-5"), process(-5, {}));
  EXPECT_EQ(bundle, expected);
}

TEST(BundlePackingTest, SystemContextHasBothHalvesEvenWhenEmpty) {
  PersistableBundle empty;
  packSystemContextToBundle({}, {}, &empty);
  EXPECT_EQ(empty.getPersistableBundleKeys(),
            (std::set<String16>{String16("SystemContextData"), String16("GlobalStateData")}));

  PersistableBundle full;
  packSystemContextToBundle({{"build_tags", "dev-keys"}}, {{"telemetry", {{"id", "{\"v\":1}"}}}}, &full);
  PersistableBundle telemetry = strings({{"GlobalNamespace", "telemetry"}});
  telemetry.putPersistableBundle(String16("GlobalStateData"), strings({{"id", "{\"v\":1}"}}));
  PersistableBundle globals;
  globals.putPersistableBundle(String16("telemetry"), telemetry);
  PersistableBundle expected;
  expected.putPersistableBundle(String16("SystemContextData"), strings({{"build_tags", "dev-keys"}}));
  expected.putPersistableBundle(String16("GlobalStateData"), globals);
  EXPECT_EQ(full, expected);
}

TEST(BundlePackingTest, WellFormedTextIsCarriedUnchanged) {
  EXPECT_EQ(carried(""), String16(u""));
  EXPECT_EQ(carried("Gr\u00fc\u00dfe \u65e5\u672c"), String16(u"Gr\u00fc\u00dfe \u65e5\u672c"));
  EXPECT_EQ(carried("\U0001f600\U0010ffff"), String16(u"\U0001f600\U0010ffff"));
  EXPECT_EQ(carried(std::string("a\0b", 3)), String16(u"a\0b", 3));
}

// An application that cuts its text at a byte count must not lose all of it.
TEST(BundlePackingTest, MalformedBytesCostThemselvesOnly) {
  EXPECT_EQ(carried("caf\xc3"), String16(u"caf\ufffd"));
  EXPECT_EQ(carried("\xf0\x9f\x98"), String16(u"\ufffd\ufffd\ufffd"));
  EXPECT_EQ(carried("a\xffz"), String16(u"a\ufffdz"));
  EXPECT_EQ(carried("\xe2z\xc3\xa9"), String16(u"\ufffdz\u00e9"));
  EXPECT_EQ(carried("\xc0\xaf"), String16(u"\ufffd\ufffd")) << "overlong";
  EXPECT_EQ(carried("\xe0\x80\xaf"), String16(u"\ufffd\ufffd\ufffd")) << "overlong";
  EXPECT_EQ(carried("\xed\xa0\x80"), String16(u"\ufffd\ufffd\ufffd")) << "surrogate";
  EXPECT_EQ(carried("\xf4\x90\x80\x80"), String16(u"\ufffd\ufffd\ufffd\ufffd")) << "beyond Unicode";
}

}  // namespace
}  // namespace Torv::OS::Diagnostics
