#include "StatsEventDecoder.h"

#include <statsd/StatsEvent.h>

#include "StatsdFixture.h"

namespace libstatsd {
namespace {

// An event of atom 110010 at 1 s that announces one field.
const std::string kOneField = "07 03 01 00ca9a3b00000000 00 baad0100";

DecodeResult decode(std::string_view event) {
  DecodedEvent ignored;
  return decodeStatsEvent(event, &ignored);
}

DecodeResult decodeField(const std::string& element) {
  return decode(bytes(kOneField + element));
}

TEST(StatsEventTest, isWrittenAndReadWithEveryTypeAsADeviceDoes) {
  StatsEvent written(110010, 1'000'000'000);
  written.addInt32(-1).addInt64(-2).addFloat(1.5F).addBool(true).addString("");
  written.addBytes(std::string_view("\0\xff", 2));
  const std::string scalars =
      "00 ffffffff 01 feffffffffffffff 04 0000c03f 05 01 02 00000000 06 02000000 00ff";
  EXPECT_EQ(written.encoded(), bytes("07 08 01 00ca9a3b00000000 00 baad0100" + scalars));

  // Key-value pairs, an attribution chain, and one that is empty come from other libraries only.
  const std::string whole =
      bytes("07 0c 01 00ca9a3b00000000 00 baad0100" + scalars +
            "08 04 01000000 00 ffffffff 02000000 01 0200000000000000 03000000 02 01000000 78"
            "04000000 04 0000c03f 09 02 e8030000 01000000 78 00000000 00000000 09 00 00 00000000");

  DecodedEvent read;
  ASSERT_EQ(decodeStatsEvent(whole, &read), DecodeResult::Decoded);
  EXPECT_EQ(read.elapsedTimestampNs, 1'000'000'000);
  EXPECT_EQ(read.atomId, 110010);
  EXPECT_EQ(read.fields, bytes("08 ffffffff0f 10 feffffffffffffffff01 1d 0000c03f 20 01 2a 00 32 02 00ff"
                               "3a 08 08 01 10 ffffffff0f 3a 04 08 02 18 02 3a 05 08 03 22 01 78"
                               "3a 07 08 04 2d 0000c03f 42 06 08 e807 12 01 78 42 04 08 00 12 00 50 00"))
      << "zero and empty values are written, a field that vanishes counts";
  for (size_t size = 0; size < whole.size(); size++) {
    EXPECT_EQ(decode(whole.substr(0, size)), DecodeResult::Malformed) << size;
  }
}

TEST(StatsEventTest, givesUpWhatIsTooLargeAsADeviceDoes) {
  const std::string fits(4064 - bytes(kOneField).size() - 5, 'x');
  EXPECT_EQ(StatsEvent(110010, 0).addString(fits).encoded().size(), 4064U);
  const StatsEvent overflow = StatsEvent(110010, 1'000'000'000).addInt32(1).addString(fits);
  EXPECT_FALSE(overflow.complete());
  EXPECT_EQ(overflow.encoded(), bytes(kOneField + "0f 04000000"));

  StatsEvent fields(110010, 1'000'000'000);
  for (int i = 0; i < 125; i++) fields.addBool(true);
  EXPECT_EQ(decode(fields.encoded()), DecodeResult::Decoded);
  EXPECT_EQ(fields.addBool(true).encoded(), bytes(kOneField + "0f 00020000"));
}

TEST(StatsEventDecoderTest, skipsAnnotationsWhereTheyMayStand) {
  const char* const atLevelOfAtom = "07 03 01 00ca9a3b00000000 10 baad0100 02 05 01  00 d2040000";
  EXPECT_EQ(decode(bytes(atLevelOfAtom)), DecodeResult::Decoded);
  for (const char* element : {
           "10 d2040000 01 05 01",                 // is_uid
           "20 d2040000 03 05 01 04 05 01",        // primary_field, exclusive_state
           "10 d2040000 07 00 03000000",           // trigger_state_reset
           "19 01 e8030000 01000000 78 05 05 01",  // primary_field_first_uid
       }) {
    EXPECT_EQ(decodeField(element), DecodeResult::Decoded) << element;
  }
}

TEST(StatsEventDecoderTest, refusesWhatTheDevicesParserRefuses) {
  for (const char* event : {
           "06 03 01 00ca9a3b00000000 00 baad0100 05 01",          // no object
           "07 01 01 00ca9a3b00000000",                            // too few elements
           "07 80 01 00ca9a3b00000000 00 baad0100",                // 128 elements
           "07 03 01 00ca9a3b00000000 01 baad010000000000 05 01",  // an atom id of 64 bits
       }) {
    EXPECT_EQ(decode(bytes(event)), DecodeResult::Malformed) << event;
  }
  for (const char* element : {
           "05 01 00",                 // a byte left over
           "03 01 00 05000000",        // a list, which came with API 33
           "02 ffffffff 78",           // a negative length
           "08 01 01000000 05 01",     // a pair's bool
           "0f 0400",                  // a mask of errors that is cut
           "10 d2040000 06 05 01",     // default_state, which no parser knows
           "12 01000000 78 01 05 01",  // is_uid at a string
           "10 d2040000 01 02 01",     // an annotation of another type
           "f0 d2040000 01 05 01",     // fewer annotations than announced
       }) {
    EXPECT_EQ(decodeField(element), DecodeResult::Malformed) << element;
  }
  EXPECT_EQ(decodeField("0f 04000000"), DecodeResult::WriterError) << "given up, not malformed";
  EXPECT_EQ(decode(bytes("07 02 01 00ca9a3b00000000 00 baad0100")), DecodeResult::Decoded)
      << "no field at all is none too few";
}

}  // namespace
}  // namespace libstatsd
