#include "StatsEventFormat.h"
#include "StatsdFixture.h"

namespace libstatsd {
namespace {

// An event of atom 110010 at 1 s that announces one field.
const std::string kOneField = "07 03 01 00ca9a3b00000000 00 baad0100";

DatagramKind decode(const std::string& event) {
  DecodedDatagram ignored;
  return decodeDatagram(datagram(event), ignored);
}

TEST(StatsEventDecoderTest, readsEveryTypeAsADeviceDoes) {
  // Scalars, key-value pairs, an attribution chain, and one that is empty.
  const std::string whole = datagram(
      "07 0c 01 00ca9a3b00000000 00 baad0100"
      "00 ffffffff 01 feffffffffffffff 04 0000c03f 05 01 02 00000000 06 02000000 00ff"
      "08 04 01000000 00 ffffffff 02000000 01 0200000000000000 03000000 02 01000000 78"
      "04000000 04 0000c03f 09 02 e8030000 01000000 78 00000000 00000000 09 00 00 00000000");
  DecodedDatagram read;
  ASSERT_EQ(decodeDatagram(whole, read), DatagramKind::Event);
  EXPECT_EQ(read.elapsedTimestampNs, 1'000'000'000);
  EXPECT_EQ(read.atomId, 110010);
  EXPECT_EQ(read.fields, bytes("08 ffffffff0f 10 feffffffffffffffff01 1d 0000c03f 20 01 2a 00 32 02 00ff"
                               "3a 08 08 01 10 ffffffff0f 3a 04 08 02 18 02 3a 05 08 03 22 01 78"
                               "3a 07 08 04 2d 0000c03f 42 06 08 e807 12 01 78 42 04 08 00 12 00 50 00"))
      << "zero and empty values are written, a field that vanishes counts";
  for (size_t size = 0; size < whole.size(); size++) {
    EXPECT_EQ(decodeDatagram(whole.substr(0, size), read), DatagramKind::Malformed) << size;
  }
}

TEST(StatsEventDecoderTest, takesAnnotationsOnlyAtTheirElements) {
  for (const char* event : {
           "07 03 01 00ca9a3b00000000 10 baad0100 02 05 01 00 d2040000",  // truncate_timestamp
           "07 02 01 00ca9a3b00000000 00 baad0100",                       // no field at all is none too few
       }) {
    EXPECT_EQ(decode(event), DatagramKind::Event) << event;
  }
  for (const char* element : {
           "10 d2040000 01 05 01",                                   // is_uid
           "18 01 01000000 00 d2040000 01 05 01",                    // the same, after a pair's integer
           "40 d2040000 03 05 01 04 05 01 07 00 03000000 08 05 01",  // those of any field
           "19 01 e8030000 01000000 78 05 05 01",                    // primary_field_first_uid
       }) {
    EXPECT_EQ(decode(kOneField + element), DatagramKind::Event) << element;
  }
}

TEST(StatsEventDecoderTest, refusesWhatTheDevicesParserRefuses) {
  for (const char* event : {
           "06 03 01 00ca9a3b00000000 00 baad0100 05 01",          // no object
           "07 01 01 00ca9a3b00000000",                            // too few elements
           "07 80 01 00ca9a3b00000000 00 baad0100",                // 128 elements
           "07 03 01 00ca9a3b00000000 01 baad010000000000 05 01",  // an atom id of 64 bits
           "07 02 01 00ca9a3b00000000 10 baad0100 03 05 01",       // primary_field at the atom
       }) {
    EXPECT_EQ(decode(event), DatagramKind::Malformed) << event;
  }
  for (const char* element : {
           "05 01 00",                    // a byte left over
           "03 01 00 05000000",           // a list, which came with API 33
           "02 ffffffff 78",              // a negative length
           "08 01 01000000 05 01",        // a pair's bool
           "0f 0400",                     // a mask of errors that is cut
           "10 d2040000 02 05 01",        // truncate_timestamp at a field
           "12 01000000 78 01 05 01",     // is_uid at a string
           "10 d2040000 05 05 01",        // primary_field_first_uid at no chain
           "10 d2040000 06 05 01",        // default_state, which no parser knows
           "10 d2040000 01 00 01000000",  // is_uid that is no bool
           "10 d2040000 07 05 01",        // trigger_state_reset that is no integer
           "f0 d2040000 01 05 01",        // fewer annotations than announced
       }) {
    EXPECT_EQ(decode(kOneField + element), DatagramKind::Malformed) << element;
  }
  EXPECT_EQ(decode(kOneField + "0f 04000000"), DatagramKind::GivenUp) << "not malformed";
}

}  // namespace
}  // namespace libstatsd
