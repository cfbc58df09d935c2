#include "Bytes.h"

#include <binder/PersistableBundle.h>
#include <gtest/gtest.h>

namespace {

using android::Parcel;
using android::String16;
using android::os::PersistableBundle;
using test::Filled;

android::status_t read(const std::string& text, PersistableBundle* bundle) {
  const Filled parcel(text);
  return bundle->readFromParcel(&parcel);
}

// A bundle of every type, nested once.
PersistableBundle everything() {
  PersistableBundle inner;
  inner.putString(String16("s"), String16("\xf0\x9f\x98\x80"));
  PersistableBundle bundle;
  bundle.putBoolean(String16("b"), true);
  bundle.putInt(String16("i"), -1);
  bundle.putLong(String16("l"), INT64_MIN);
  bundle.putDouble(String16("d"), 1.5);
  bundle.putString(String16("s"), String16());
  bundle.putBooleanVector(String16("B"), {true});
  bundle.putIntVector(String16("I"), {1, 2});
  bundle.putLongVector(String16("L"), {});
  bundle.putDoubleVector(String16("D"), {0.5});
  bundle.putStringVector(String16("S"), {String16("x"), String16()});
  bundle.putPersistableBundle(String16("n"), inner);
  bundle.putPersistableBundle(String16("e"), PersistableBundle());
  return bundle;
}

TEST(PersistableBundleTest, everyTypeIsReadBackAndThePositionEndsBehindTheBundle) {
  Parcel parcel;
  parcel.writeParcelable(everything());
  parcel.writeInt32(42);
  parcel.setDataPosition(0);
  PersistableBundle copy;
  ASSERT_EQ(parcel.readParcelable(&copy), android::OK);
  EXPECT_TRUE(copy == everything());
  EXPECT_EQ(parcel.readInt32(), 42);
}

TEST(PersistableBundleTest, eachFaultHasItsError) {
  for (const auto& [text, expected] : std::vector<std::pair<const char*, android::status_t>>{
           {"", android::OK},
           {"00000000", android::OK},
           {"ffffffff", android::UNEXPECTED_NULL},
           {"18000000", android::NOT_ENOUGH_DATA},
           {"18000000 11111111 00000000", android::BAD_VALUE},
           {"18000000 444e444c", android::NOT_ENOUGH_DATA},
           {"18000000 444e444c ffffffff", android::OK},
           {"01000000 424e444c 00000000", android::OK},  // Java's magic; the length does not count
           {"18000000 444e444c ffffff7f 00000000 00000000 00000000 00000000", android::BAD_VALUE},
           {"18000000 444e444c 01000000 ffffffff 00000000 00000000 00000000", android::UNEXPECTED_NULL},
           {"18000000 444e444c 01000000 01000000 6b000000 02000000 00000000", android::BAD_TYPE},
           {"18000000 444e444c 01000000 01000000 6b000000 00000000 ffffffff", android::UNEXPECTED_NULL},
           {"18000000 444e444c 01000000 01000000 6b000000 12000000 ffffffff", android::UNEXPECTED_NULL},
           {"18000000 444e444c 01000000 01000000 6b000000 19000000 ffffffff", android::UNEXPECTED_NULL},
           {"18000000 444e444c 01000000 01000000 6b000000 06000000 00000000", android::NOT_ENOUGH_DATA},
       }) {
    PersistableBundle bundle;
    EXPECT_EQ(read(text, &bundle), expected) << text;
  }
}

// As on the device, a bundle read at the end of a parcel is empty.
TEST(PersistableBundleTest, aCutBundleFailsUnlessTheCutIsBeforeABundle) {
  Parcel whole;
  ASSERT_EQ(everything().writeToParcel(&whole), android::OK);
  const size_t lastNested = whole.dataSize() - 36;
  for (size_t size = 0; size < whole.dataSize(); ++size) {
    Parcel parcel;
    parcel.setData(whole.data(), size);
    PersistableBundle bundle;
    const auto status = bundle.readFromParcel(&parcel);
    EXPECT_EQ(status == android::OK, size < 4 || (size >= lastNested && size < lastNested + 4)) << size;
    EXPECT_LE(parcel.dataPosition(), size);
  }
}

std::string nest(int depth) {
  std::string text;
  for (int i = 0; i < depth; ++i) text += "18000000 444e444c 01000000 01000000 6b000000 19000000 ";
  return text + "00000000";
}

TEST(PersistableBundleTest, nestingDeeperThan32IsRefused) {
  PersistableBundle bundle;
  EXPECT_EQ(read(nest(32), &bundle), android::OK);
  EXPECT_EQ(read(nest(33), &bundle), android::BAD_VALUE);
  EXPECT_EQ(read(nest(1000), &bundle), android::BAD_VALUE);
  // The count of levels is back to none.
  EXPECT_EQ(read(nest(32), &bundle), android::OK);
}

}  // namespace
