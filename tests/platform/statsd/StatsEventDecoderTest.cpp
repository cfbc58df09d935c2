#include "StatsEventDecoder.h"

#include <random>
#include <vector>

#include <gtest/gtest.h>
#include <statsd/StatsEvent.h>

#include "Bytes.h"

namespace libstatsd {
namespace {

using test::bytes;

// The head of an event of atom 110010 at 1 s with `fields` fields.
std::string head(int fields) {
  return test::concat(
      {bytes("07"), std::string(1, static_cast<char>(fields + 2)), bytes("01 00ca9a3b00000000 00 baad0100")});
}

DecodeResult decode(std::string_view event, DecodedEvent* out = nullptr) {
  DecodedEvent ignored;
  return decodeStatsEvent(event, out != nullptr ? out : &ignored);
}

// What a field becomes in the atom's message, as the event's only one.
std::string fieldOf(std::string_view element) {
  DecodedEvent event;
  EXPECT_EQ(decode(test::concat({head(1), element}), &event), DecodeResult::Decoded);
  return event.fields;
}

TEST(StatsEventDecoderTest, DecodesADevicesEvent) {
  DecodedEvent event;
  ASSERT_EQ(decode(bytes("07 05 01 00ca9a3b00000000 00 baad0100 00 d2040000 02 06000000 73637265656e"
                         "02 04000000 686f6d65"),
                   &event),
            DecodeResult::Decoded);
  EXPECT_EQ(event.elapsedTimestampNs, 1'000'000'000);
  EXPECT_EQ(event.atomId, 110010);
  EXPECT_EQ(event.fields, bytes("08 d209 12 06 73637265656e 1a 04 686f6d65"));
}

TEST(StatsEventDecoderTest, WritesEveryTypeAsReportsCarryIt) {
  EXPECT_EQ(fieldOf(bytes("00 ffffffff")), bytes("08 ffffffff0f")) << "a negative int32 takes 5 bytes";
  EXPECT_EQ(fieldOf(bytes("00 00000000")), bytes("08 00")) << "zero is written";
  EXPECT_EQ(fieldOf(bytes("01 feffffffffffffff")), bytes("08 feffffffffffffffff01"));
  EXPECT_EQ(fieldOf(bytes("04 0000c03f")), bytes("0d 0000c03f"));
  EXPECT_EQ(fieldOf(bytes("05 01")), bytes("08 01"));
  EXPECT_EQ(fieldOf(bytes("02 00000000")), bytes("0a 00")) << "an empty string is written";
  EXPECT_EQ(fieldOf(bytes("06 02000000 00ff")), bytes("0a 02 00ff"));
  EXPECT_EQ(fieldOf(bytes("09 02 e8030000 01000000 78 00000000 00000000")),
            bytes("0a 06 08 e807 12 01 78   0a 04 08 00 12 00"));
  EXPECT_EQ(
      fieldOf(bytes("08 04 01000000 00 ffffffff  02000000 01 0200000000000000"
                    "03000000 02 01000000 78  04000000 04 0000c03f")),
      bytes("0a 08 08 01 10 ffffffff0f  0a 04 08 02 18 02  0a 05 08 03 22 01 78  0a 07 08 04 2d 0000c03f"));
}

TEST(StatsEventDecoderTest, NumbersFieldsByPositionPastOnesThatVanish) {
  DecodedEvent event;
  ASSERT_EQ(decode(test::concat({head(2), bytes("09 00  00 05000000")}), &event), DecodeResult::Decoded);
  EXPECT_EQ(event.fields, bytes("10 05"));
}

TEST(StatsEventDecoderTest, SkipsAnnotationsWhereTheyMayStand) {
  const char* const atLevelOfAtom = "07 03 01 00ca9a3b00000000 10 baad0100 02 05 01  00 d2040000";
  EXPECT_EQ(decode(bytes(atLevelOfAtom)), DecodeResult::Decoded);
  for (const char* element : {
           "10 d2040000 01 05 01",                 // is_uid
           "20 d2040000 03 05 01 04 05 01",        // primary_field, exclusive_state
           "10 d2040000 07 00 03000000",           // trigger_state_reset
           "10 d2040000 08 05 00",                 // state_nested
           "19 01 e8030000 01000000 78 05 05 01",  // primary_field_first_uid
       }) {
    EXPECT_EQ(decode(test::concat({head(1), bytes(element)})), DecodeResult::Decoded) << element;
  }
  for (const char* element : {
           "10 d2040000 06 05 01",        // default_state, which no parser knows
           "10 d2040000 09 05 01",        // no such id
           "10 d2040000 02 05 01",        // truncate_timestamp at a field
           "10 d2040000 05 05 01",        // primary_field_first_uid without a chain
           "12 01000000 78 01 05 01",     // is_uid at a string
           "10 d2040000 01 00 01000000",  // is_uid with a number
           "10 d2040000 07 05 01",        // trigger_state_reset with a bool
           "10 d2040000 01 02 01",        // an annotation of another type
           "f0 d2040000 01 05 01",        // fewer annotations than announced
       }) {
    EXPECT_EQ(decode(test::concat({head(1), bytes(element)})), DecodeResult::Malformed) << element;
  }
}

TEST(StatsEventDecoderTest, RefusesWhatTheDevicesParserRefuses) {
  for (const char* event : {
           "",
           "06 03 01 00ca9a3b00000000 00 baad0100 05 01",                 // no object
           "07 01 01 00ca9a3b00000000",                                   // too few elements
           "07 80 01 00ca9a3b00000000 00 baad0100",                       // 128 elements
           "07 03 00 00ca9a3b 00 baad0100 05 01",                         // a timestamp of 32 bits
           "07 03 01 00ca9a3b00000000 01 baad010000000000 05 01",         // an atom id of 64 bits
           "07 03 01 00ca9a3b00000000 00 baad0100 05 01 00",              // a byte left over
           "07 04 01 00ca9a3b00000000 00 baad0100 05 01",                 // fewer fields than announced
           "07 03 01 00ca9a3b00000000 00 baad0100 03 01 00 05000000",     // a list, which came with API 33
           "07 03 01 00ca9a3b00000000 00 baad0100 02 ffffffff 78",        // a negative length
           "07 03 01 00ca9a3b00000000 00 baad0100 02 02000000 78",        // a length past the end
           "07 03 01 00ca9a3b00000000 00 baad0100 08 01 01000000 05 01",  // a pair's bool
           "07 03 01 00ca9a3b00000000 00 baad0100 09 02 e8030000 01000000 78",  // one of two nodes
       }) {
    EXPECT_EQ(decode(bytes(event)), DecodeResult::Malformed) << event;
  }
  EXPECT_EQ(decode(head(0)), DecodeResult::Decoded) << "no field at all is none too few";
}

TEST(StatsEventDecoderTest, TellsAGivenUpEventFromAMalformedOne) {
  EXPECT_EQ(decode(bytes("07 03 01 00ca9a3b00000000 00 baad0100 0f 04000000")), DecodeResult::WriterError);
  EXPECT_EQ(decode(bytes("07 03 01 00ca9a3b00000000 00 baad0100 0f 0400")), DecodeResult::Malformed);
}

StatsEvent eventOfEveryType() {
  const std::vector<KeyValue> pairs = {{1, -7}, {2, int64_t{1} << 40}, {3, 1.5F}, {4, std::string_view("v")}};
  const std::vector<AttributionNode> nodes = {{1000, "x"}, {10123, ""}};
  return StatsEvent(110010, 5)
      .addInt32(-1)
      .addInt64(-2)
      .addFloat(0.25F)
      .addBool(true)
      .addString("text")
      .addBytes(std::string_view("\0\xff", 2))
      .addKeyValues(pairs)
      .addAttributionChain(nodes);
}

TEST(StatsEventDecoderTest, ReadsWhatTheWriterWritesAndNoPartOfIt) {
  const std::string whole = eventOfEveryType().encoded();
  EXPECT_EQ(decode(whole), DecodeResult::Decoded);
  for (size_t size = 0; size < whole.size(); size++) {
    EXPECT_EQ(decode(std::string_view(whole).substr(0, size)), DecodeResult::Malformed) << size;
  }
}

TEST(StatsEventDecoderTest, EndsOnRandomBytesOfEveryLength) {
  std::mt19937 random(1);
  std::string event;
  for (size_t size = 0; size <= 8192; size++) {
    event.resize(size);
    for (char& byte : event) byte = static_cast<char>(random());
    // The first bytes are right, so that the random ones are met as fields.
    const std::string start = head(1 + static_cast<int>(random() % 125));
    event.replace(0, std::min(size, start.size()), start, 0, std::min(size, start.size()));
    DecodedEvent decoded;
    if (decode(event, &decoded) == DecodeResult::Decoded) {
      EXPECT_LT(decoded.fields.size(), 3 * size);
    }
  }
}

TEST(StatsEventTest, WritesADevicesBytes) {
  EXPECT_EQ(StatsEvent(110010, 1'000'000'000).addInt32(1234).addString("screen").addString("home").encoded(),
            bytes("07 05 01 00ca9a3b00000000 00 baad0100 00 d2040000 02 06000000 73637265656e"
                  "02 04000000 686f6d65"));
  EXPECT_EQ(StatsEvent(110010, 0).addAttributionChain(std::vector<AttributionNode>{{1000, "x"}}).encoded(),
            bytes("07 03 01 0000000000000000 00 baad0100 09 01 e8030000 01000000 78"));
}

TEST(StatsEventTest, GivesUpWhatIsTooLargeAsADeviceDoes) {
  constexpr size_t kHead = 16;
  constexpr size_t kStringHead = 5;
  const std::string fits(4064 - kHead - kStringHead, 'x');
  EXPECT_EQ(StatsEvent(110010, 0).addString(fits).encoded().size(), 4064U);
  const StatsEvent overflow = StatsEvent(110010, 1'000'000'000).addInt32(1).addString(fits);
  EXPECT_FALSE(overflow.complete());
  EXPECT_EQ(overflow.encoded(), bytes("07 03 01 00ca9a3b00000000 00 baad0100 0f 04000000"));

  StatsEvent fields(110010, 0);
  for (int i = 0; i < 125; i++) fields.addBool(true);
  EXPECT_EQ(decode(fields.encoded()), DecodeResult::Decoded);
  EXPECT_EQ(fields.addBool(true).encoded(), bytes("07 03 01 0000000000000000 00 baad0100 0f 00020000"));
  EXPECT_FALSE(StatsEvent(1).addKeyValues(std::vector<KeyValue>(128)).complete());
  EXPECT_FALSE(StatsEvent(1).addAttributionChain(std::vector<AttributionNode>(128)).complete());
}

}  // namespace
}  // namespace libstatsd
