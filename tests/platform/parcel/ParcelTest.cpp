// The wire layout of parcels is that of API 32. Debian's headers come from an older library, which differs in
// three points:
//   - an empty String8 takes 8 bytes in API 32, 4 in the older library
//   - the marker of a parcelable that is not null is exactly 1; the older library takes any number but 0
//   - a string without its NUL reads as UNEXPECTED_NULL; the older library accepts it
#include "parcel/ParcelHeader.h"

#include <binder/PersistableBundle.h>
#include <binder/Status.h>
#include <gtest/gtest.h>
#include <utils/String8.h>

#include "support/Hex.h"

namespace {

using android::Parcel;
using android::String16;
using android::String8;
using android::os::PersistableBundle;

// The bytes of the parcel in hexadecimal, with a space after each word of four bytes.
std::string hex(const Parcel& parcel) {
  std::string text;
  for (size_t i = 0; i < parcel.dataSize(); ++i) {
    if (i != 0 && i % 4 == 0) text += ' ';
    for (const int shift : {4, 0}) text += "0123456789abcdef"[parcel.data()[i] >> shift & 0xf];
  }
  return text;
}

// A parcel with the bytes that hex() prints as `text`; its position is at the start.
class Filled : public Parcel {
 public:
  explicit Filled(const std::string& text) {
    const std::string bytes = test::bytes(text);
    setData(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
  }
};

// The recorded parcels hold the other scalars, strings of 16 bits and vectors as the real library writes
// them.
TEST(ParcelBytesTest, textsAndVectorsThatNoRequestHasAreLaidOutAsTheDeviceDoesAndReadBack) {
  Parcel parcel;
  parcel.writeByteVector(std::vector<uint8_t>{1, 2, 3});
  parcel.writeUtf8VectorAsUtf16Vector({"", "x"});
  parcel.writeString8(String8("eight"));
  parcel.writeString8(String8());
  parcel.writeString16(nullptr, 0);
  parcel.writeUtf8AsUtf16(std::string("a\xf0\x9f\x98\x80"));
  EXPECT_EQ(parcel.writeUtf8AsUtf16(std::string("\xff\xff")), android::BAD_VALUE);
  EXPECT_EQ(hex(parcel),
            "03000000 01020300 02000000 00000000 00000000 01000000 78000000 05000000 65696768 74000000 "
            "00000000 00000000 ffffffff 03000000 61003dd8 00de0000");
  parcel.setDataPosition(0);
  std::vector<uint8_t> bytes;
  EXPECT_EQ(parcel.readByteVector(&bytes), android::OK);
  EXPECT_EQ(bytes, (std::vector<uint8_t>{1, 2, 3}));
  std::vector<std::string> texts;
  EXPECT_EQ(parcel.readUtf8VectorFromUtf16Vector(&texts), android::OK);
  EXPECT_EQ(texts, (std::vector<std::string>{"", "x"}));
  String8 eight;
  EXPECT_EQ(parcel.readString8(&eight), android::OK);
  EXPECT_STREQ(eight.string(), "eight");
}

TEST(ParcelTokenTest, policyAndWorkSourceAreIgnoredButHeaderAndDescriptorMustMatch) {
  const std::string token = "00000080 ffffffff 54535953 03000000 61002e00 42000000";
  Parcel parcel;
  parcel.writeInterfaceToken(String16("a.B"));
  EXPECT_EQ(hex(parcel), token);
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
  PersistableBundle bundle;
  EXPECT_EQ(Filled("01000000 00000000").readParcelable(&bundle), android::OK);
  EXPECT_EQ(Filled("00000000 00000000").readParcelable(&bundle), android::UNEXPECTED_NULL);
  EXPECT_EQ(Filled("02000000 00000000").readParcelable(&bundle), android::UNEXPECTED_NULL);
  EXPECT_EQ(Filled("").readParcelable(&bundle), android::NOT_ENOUGH_DATA);
}

TEST(StatusTest, readingLeavesThePositionBehindItAndHostileBytesAreAFailedTransaction) {
  using android::binder::Status;
  constexpr int32_t kFailed = Status::EX_TRANSACTION_FAILED;
  const std::tuple<std::string, android::status_t, int32_t> cases[] = {
      {"00000000", android::OK, Status::EX_NONE},
      {"80ffffff 08000000 11111111", android::OK,
       Status::EX_NONE},  // Java's header, whose size counts itself
      {"fbffffff 01000000 78000000 04000000 11111111", android::OK, Status::EX_ILLEGAL_STATE},
      {"f8ffffff 01000000 78000000 00000000 07000000", android::OK, Status::EX_SERVICE_SPECIFIC},
      {"f7ffffff 01000000 78000000 00000000 08000000 11111111", android::OK, Status::EX_PARCELABLE},
      {"c9ffffff 00000000 00000000 00000000", android::OK, -55},
      {"", android::NOT_ENOUGH_DATA, kFailed},
      {"80ffffff ffffffff", android::UNKNOWN_ERROR, kFailed},
      {"80ffffff 40000000 00000000", android::UNKNOWN_ERROR, kFailed},
      {"fbffffff ffffffff 00000000", android::UNEXPECTED_NULL, kFailed},
      {"fbffffff 00000000 00000000", android::NOT_ENOUGH_DATA, kFailed},
      {"fbffffff 00000000 00000000 ffffff7f", android::UNKNOWN_ERROR, kFailed},
      {"f8ffffff 00000000 00000000 00000000", android::NOT_ENOUGH_DATA, kFailed},
      {"f7ffffff 00000000 00000000 00000000 ffffff7f", android::UNKNOWN_ERROR, kFailed},
  };
  for (const auto& [text, expected, exception] : cases) {
    const bool isWhole = expected == android::OK;
    const Filled parcel(isWhole ? text + " 2a000000" : text);
    Status status;
    EXPECT_EQ(status.readFromParcel(parcel), expected) << text;
    EXPECT_EQ(status.exceptionCode(), exception) << text;
    EXPECT_EQ(status.transactionError(), expected) << text;
    EXPECT_TRUE(!isWhole || parcel.readInt32() == 42) << text;
  }
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

// A bundle in a bundle, and so on, around an empty one.
std::string nest(int depth) {
  std::string text;
  for (int i = 0; i < depth; ++i) text += "18000000 444e444c 01000000 01000000 6b000000 19000000 ";
  return text + "00000000";
}

TEST(PersistableBundleTest, eachFaultHasItsError) {
  for (const auto& [text, expected] : std::vector<std::pair<std::string, android::status_t>>{
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
           {nest(32), android::OK},
           {nest(33), android::BAD_VALUE},
           {nest(1000), android::BAD_VALUE},
           {nest(32), android::OK},  // the count of levels is back to none
       }) {
    const Filled parcel(text);
    PersistableBundle bundle;
    EXPECT_EQ(bundle.readFromParcel(&parcel), expected) << text;
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

}  // namespace
