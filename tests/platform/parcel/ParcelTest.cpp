// The wire layout of parcels is that of API 32. Debian's headers come from an older library, which differs in
// three points:
//   - an empty String8 takes 8 bytes in API 32, 4 in the older library
//   - the marker of a parcelable that is not null is exactly 1; the older library takes any number but 0
//   - a string without its NUL reads as UNEXPECTED_NULL; the older library accepts it
#include "Bytes.h"

#include <binder/PersistableBundle.h>
#include <gtest/gtest.h>
#include <utils/String8.h>

namespace {

using android::Parcel;
using android::String16;
using android::String8;
using test::Filled;
using test::hexOf;

// The recorded parcels hold the other scalars, strings of 16 bits and vectors as the real library writes
// them.
TEST(ParcelBytesTest, textsAndVectorsThatNoRequestHasAreLaidOutAsTheDeviceDoes) {
  EXPECT_EQ(hexOf([](Parcel& p) { p.writeByteVector(std::vector<uint8_t>{1, 2, 3}); }), "03000000 01020300");
  EXPECT_EQ(hexOf([](Parcel& p) { p.writeUtf8VectorAsUtf16Vector({"a"}); }), "01000000 01000000 61000000");
  EXPECT_EQ(hexOf([](Parcel& p) { p.writeString16(nullptr, 0); }), "ffffffff");
  EXPECT_EQ(hexOf([](Parcel& p) { p.writeUtf8AsUtf16(std::string("a\xf0\x9f\x98\x80")); }),
            "03000000 61003dd8 00de0000");
  EXPECT_EQ(hexOf([](Parcel& p) { p.writeString8(String8("hi")); }), "02000000 68690000");
  EXPECT_EQ(hexOf([](Parcel& p) { p.writeString8(String8()); }), "00000000 00000000");
  Parcel parcel;
  EXPECT_EQ(parcel.writeUtf8AsUtf16(std::string("\xff\xff")), android::BAD_VALUE);
}

TEST(ParcelTokenTest, policyAndWorkSourceAreIgnoredButHeaderAndDescriptorMustMatch) {
  const std::string token = "00000080 ffffffff 54535953 03000000 61002e00 42000000";
  EXPECT_EQ(hexOf([](Parcel& p) { p.writeInterfaceToken(String16("a.B")); }), token);
  const auto isFor = [](const std::string& text, const char* name) {
    return Filled(text).enforceInterface(String16(name));
  };
  EXPECT_TRUE(isFor(token, "a.B"));
  EXPECT_TRUE(isFor("05000080 e8030000" + token.substr(17), "a.B"));
  EXPECT_FALSE(isFor(token, "a.BC"));
  EXPECT_FALSE(isFor(token, "a."));
  for (const size_t size : {0, 40}) EXPECT_FALSE(isFor(token.substr(0, size), "a.B")) << size;
  EXPECT_FALSE(isFor("00000080 ffffffff 52444e56" + token.substr(26), "a.B")) << "a vendor's header";
}

TEST(ParcelReadTest, returnsTheValuesThatNoBundleHolds) {
  const Filled parcel(
      "05000000 65696768 74000000 03000000 01020300 02000000 00000000 00000000 01000000 78000000");
  String8 eight;
  ASSERT_EQ(parcel.readString8(&eight), android::OK);
  EXPECT_STREQ(eight.string(), "eight");
  std::vector<uint8_t> bytes;
  ASSERT_EQ(parcel.readByteVector(&bytes), android::OK);
  EXPECT_EQ(bytes, (std::vector<uint8_t>{1, 2, 3}));
  std::vector<std::string> texts;
  ASSERT_EQ(parcel.readUtf8VectorFromUtf16Vector(&texts), android::OK);
  EXPECT_EQ(texts, (std::vector<std::string>{"", "x"}));
  EXPECT_EQ(parcel.dataAvail(), 0u);
}

TEST(ParcelWriteTest, aWriteBeyondTheEndFillsTheGapWithZeros) {
  Parcel parcel;
  parcel.setDataPosition(8);
  ASSERT_EQ(parcel.writeInt32(-1), android::OK);
  EXPECT_EQ(test::hex(parcel), "00000000 00000000 ffffffff");
}

TEST(ParcelReadTest, aTruncatedScalarIsNotEnoughData) {
  const Filled parcel("01000000 020000");
  int64_t wide = 0;
  EXPECT_EQ(parcel.readInt64(&wide), android::NOT_ENOUGH_DATA);
  EXPECT_EQ(parcel.dataPosition(), 0u);
  int32_t narrow = 0;
  EXPECT_EQ(parcel.readInt32(&narrow), android::OK);
  EXPECT_EQ(parcel.readInt32(&narrow), android::NOT_ENOUGH_DATA);
  EXPECT_EQ(narrow, 1);
  EXPECT_EQ(parcel.readInplace(SIZE_MAX), nullptr);
  EXPECT_EQ(Parcel().writeInplace(SIZE_MAX), nullptr);
}

TEST(ParcelReadTest, aStringThatIsNotWholeIsUnexpectedNull) {
  for (const char* text : {
           "",                   // nothing
           "ffffffff",           // null
           "feffffff",           // a negative length
           "ffffff7f 61000000",  // a length past the end
           "02000000 61006200",  // no room for the NUL
           "01000000 61006200",  // another character instead of the NUL
       }) {
    const Filled parcel(text);
    String16 sixteen;
    EXPECT_EQ(parcel.readString16(&sixteen), android::UNEXPECTED_NULL) << text;
    std::string utf8;
    parcel.setDataPosition(0);
    EXPECT_EQ(parcel.readUtf8FromUtf16(&utf8), android::UNEXPECTED_NULL) << text;
  }
  // A char16_t cannot lie at an odd position.
  const Filled odd("00010000 00610000 00000000");
  odd.setDataPosition(1);
  String16 sixteen;
  EXPECT_EQ(odd.readString16(&sixteen), android::UNEXPECTED_NULL);
  for (const char* text : {"", "ffffffff", "04000000 61616161", "ffffff7f 61000000"}) {
    String8 eight;
    EXPECT_EQ(Filled(text).readString8(&eight), android::UNEXPECTED_NULL) << text;
  }
}

TEST(ParcelReadTest, aVectorWhoseCountExceedsTheBytesLeftIsRefused) {
  const std::string huge = "ffffff7f 00000000";
  std::vector<int32_t> ints;
  EXPECT_EQ(Filled(huge).readInt32Vector(&ints), android::BAD_VALUE);
  EXPECT_EQ(Filled("ffffffff").readInt32Vector(&ints), android::UNEXPECTED_NULL);
  std::vector<String16> strings;
  EXPECT_EQ(Filled(huge).readString16Vector(&strings), android::BAD_VALUE);
  // the second string is missing
  EXPECT_EQ(Filled("02000000 01000000 61000000").readString16Vector(&strings), android::UNEXPECTED_NULL);
  std::vector<uint8_t> raw;
  EXPECT_EQ(Filled(huge).readByteVector(&raw), android::BAD_VALUE);
  EXPECT_EQ(Filled("03000000 010203").readByteVector(&raw), android::BAD_VALUE);  // no padding
  std::vector<int64_t> longs;
  EXPECT_EQ(Filled("02000000 01000000 02000000").readInt64Vector(&longs), android::BAD_VALUE);
}

TEST(ParcelReadTest, theMarkerOfAParcelableIsExactlyOne) {
  android::os::PersistableBundle bundle;
  EXPECT_EQ(Filled("01000000 00000000").readParcelable(&bundle), android::OK);
  EXPECT_EQ(Filled("00000000 00000000").readParcelable(&bundle), android::UNEXPECTED_NULL);
  EXPECT_EQ(Filled("02000000 00000000").readParcelable(&bundle), android::UNEXPECTED_NULL);
  EXPECT_EQ(Filled("").readParcelable(&bundle), android::NOT_ENOUGH_DATA);
}

}  // namespace
