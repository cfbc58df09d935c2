#include "AtomIntake.h"

#include <gmock/gmock.h>

#include "support/Hex.h"
#include "support/LogCapture.h"
#include "support/TempDir.h"

namespace libstatsd {
namespace {

using test::bytes;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr uid_t kApplication = 10123;
constexpr ConfigKey kKey{1000, 57476};

// A datagram with the event that `hex` spells.
std::string datagram(const std::string& hex) {
  return bytes("05 3412 80005962 00000000 74617473" + hex);
}

const std::string kState = datagram("07 03 01 0500000000000000 00 baad0100 05 01");
const std::string kLarge = datagram("07 03 01 0500000000000000 00 baad0100 02 a00f0000").append(4000, 'x');

class AtomIntakeTest : public testing::Test {
 protected:
  AtomIntakeTest() { EXPECT_TRUE(mIntake.configure(kKey, {110010}, {"AID_APP", "com.pellux.quorrel"})); }

  void receive(const std::string& datagram, uid_t sender = kApplication) {
    mIntake.receive(datagram, false, sender);
  }
  StatsdStatus status() const { return mIntake.status(0); }

  AtomIntake mIntake;
};

TEST_F(AtomIntakeTest, everyDatagramIsCountedOnce) {
  for (const std::string& sent :
       {kState, datagram("07 02 01 0500000000000000 00 bbad0100"),
        datagram("07 03 01 0500000000000000 00 baad0100 0f 04000000"), std::string("x"), kState.substr(0, 12),
        std::string(), bytes("05 3412 80005962 00000000 f5ffffff 01 03000000baad0100")}) {
    receive(sent);
  }
  receive(kState, 4711);
  mIntake.receive(kLarge, true, kApplication);
  std::string counted;
  StatsdCounters counters = status().counters;
  forEachCounter(counters, [&](const char* name, uint64_t count) {
    if (count != 0) counted += name + std::string(" ") + std::to_string(count) + ", ";
  });
  EXPECT_EQ(counted,
            "received 9, decoded 2, dropped_malformed 3, dropped_too_long 1, dropped_errors 1, "
            "dropped_sender 1, dropped_unwanted 1, drop_notes 1, lost_by_senders 3, held 1, ");
}

TEST_F(AtomIntakeTest, aPublisherThatFillsTheStorePushesOutItsOwnAtomsOnly) {
  receive(kState);
  for (int i = 0; i < 600; ++i) receive(kLarge, kApplication + 1);
  receive(kState);
  const StatsdStatus shown = status();
  ASSERT_EQ(shown.uids.size(), 2U);
  const auto& [flood, other] = std::pair(shown.uids[0], shown.uids[1]);
  EXPECT_EQ(flood.uid, kApplication + 1) << "the uid that lost most comes first";
  EXPECT_EQ(flood.received, flood.held + flood.droppedFull);
  EXPECT_GT(flood.held, 500U);
  EXPECT_EQ(other.held, 2U);
  const Report all = mIntake.take(kKey);
  ASSERT_EQ(all.size(), flood.held + 2);
  const auto bytesAt = [&](size_t i) { return all[i].atom.unknown_fields().length_delimited().size(); };
  EXPECT_GT(bytesAt(1), bytesAt(0)) << "in order of arrival, the other's first";
  EXPECT_EQ(bytesAt(flood.held + 1), bytesAt(0)) << "and its second last";
  EXPECT_EQ(status().counters.fetched, flood.held + 2);
  EXPECT_EQ(status().counters.held + status().uids[0].held + status().uids[1].held, 0U);
}

TEST_F(AtomIntakeTest, whatIsNotHeardIsCountedForEachUidAndTheListIsBounded) {
  for (uid_t uid = 20000; uid < 30000; ++uid) receive(kState, uid);
  EXPECT_EQ(status().counters.droppedSender, 10000U);
  EXPECT_EQ(status().uids.size(), kMaxListedUids);
  EXPECT_EQ(status().uids[0].notHeard, 1U);
}

TEST_F(AtomIntakeTest, whatFullStoresDropIsLoggedOnceAMinute) {
  const auto noticesAfter = [&](uint64_t dropped, int64_t seconds) {
    while (status().counters.droppedFull < dropped) receive(kLarge);
    return mIntake.takeNotices(seconds * platform::LogLimit::kSecondNs);
  };
  EXPECT_THAT(noticesAfter(3, 0), ElementsAre(HasSubstr("oldest 3 atoms")));
  EXPECT_THAT(noticesAfter(7, 59), testing::IsEmpty());
  EXPECT_THAT(noticesAfter(9, 60), ElementsAre(HasSubstr("oldest 6 atoms")));
}

TEST_F(AtomIntakeTest, aConfigurationIsReplacedUnderItsKeyAndKeptUnderAnother) {
  receive(kState);
  EXPECT_FALSE(mIntake.configure({1000, 1}, {110010}, {"AID_APP"}));
  EXPECT_TRUE(mIntake.take({1000, 1}).empty());
  EXPECT_TRUE(mIntake.configure(kKey, {110010}, {"AID_LMKD"}));
  EXPECT_FALSE(mIntake.status(kApplication).askerHeard);
  EXPECT_EQ(mIntake.take(kKey).size(), 1U) << "what was kept stays";
}

TEST(LogSourcesTest, allowsFixedUidsApplicationsAndTheServiceItself) {
  const UidRanges all = uidsOfSources({"AID_APP", "AID_SYSTEM", "com.pellux.vantry"}, 1234, {});
  for (const uid_t uid : {10000, 19999, 1010000, 1000, 1234}) EXPECT_TRUE(contains(all, uid)) << uid;
  for (const uid_t uid : {0, 9999, 20000, 99000, 1001000, 2000}) EXPECT_FALSE(contains(all, uid)) << uid;
  const UidRanges system = uidsOfSources({"AID_SYSTEM", "AID_NO_SUCH"}, 1234, {});
  for (const uid_t uid : {0, 1234, 10000}) EXPECT_FALSE(contains(system, uid)) << uid;
}

TEST(ApplicationUidsTest, areThoseOfTheEnvironmentOrTheDevicesIfThatDoesNotParse) {
  const test::ScopedEnv good("TORV_APP_UIDS", "1000-59999,70000");
  const ApplicationUids uids = ApplicationUids::ofThisHost();
  EXPECT_EQ(uids.text, "1000-59999,70000");
  for (const uid_t uid : {1000, 59999, 70000}) EXPECT_TRUE(contains(uids.ranges, uid)) << uid;
  for (const uid_t uid : {999, 60000, 69999, 70001, 110000}) EXPECT_FALSE(contains(uids.ranges, uid)) << uid;
  for (const std::string wrong :
       {"x", "1000-", "-5", "5-4", "1,,2", "1,", "4294967296", "1 - 2", "1-2-3", "0x10", "+1"}) {
    const test::LogCapture log;
    const test::ScopedEnv environment("TORV_APP_UIDS", wrong);
    EXPECT_TRUE(contains(ApplicationUids::ofThisHost().ranges, 1010000)) << "the default";
    EXPECT_THAT(log.texts(ANDROID_LOG_ERROR), ElementsAre(HasSubstr("TORV_APP_UIDS=" + wrong + ": \"")));
  }
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

TEST(StatsEventDecoderTest, refusesWhatTheDevicesParserRefuses) {
  using enum DatagramKind;
  // An event of atom 110010 that announces one field.
  const std::string field = "07 03 01 00ca9a3b00000000 00 baad0100";
  const std::pair<DatagramKind, std::string> cases[] = {
      {GivenUp, field + "0f 04000000"},
      {Event, "07 02 01 00ca9a3b00000000 00 baad0100"},  // no field at all is none too few
      {Event, "07 03 01 00ca9a3b00000000 10 baad0100 02 05 01 00 d2040000"},  // truncate_timestamp
      {Event, field + "10 d2040000 01 05 01"},                                // is_uid
      {Event, field + "18 01 01000000 00 d2040000 01 05 01"},  // the same, after a pair's integer
      {Event, field + "40 d2040000 03 05 01 04 05 01 07 00 03000000 08 05 01"},  // those of any field
      {Event, field + "19 01 e8030000 01000000 78 05 05 01"},                    // primary_field_first_uid
      {Malformed, "06 03 01 00ca9a3b00000000 00 baad0100 05 01"},                // no object
      {Malformed, "07 01 01 00ca9a3b00000000"},                                  // too few elements
      {Malformed, "07 80 01 00ca9a3b00000000 00 baad0100"},                      // 128 elements
      {Malformed, "07 03 01 00ca9a3b00000000 01 baad010000000000 05 01"},        // an atom id of 64 bits
      {Malformed, "07 02 01 00ca9a3b00000000 10 baad0100 03 05 01"},             // primary_field at the atom
      {Malformed, field + "05 01 00"},                                           // a byte left over
      {Malformed, field + "03 01 00 05000000"},           // a list, which came with API 33
      {Malformed, field + "02 ffffffff 78"},              // a negative length
      {Malformed, field + "08 01 01000000 05 01"},        // a pair's bool
      {Malformed, field + "0f 0400"},                     // a mask of errors that is cut
      {Malformed, field + "10 d2040000 02 05 01"},        // truncate_timestamp at a field
      {Malformed, field + "12 01000000 78 01 05 01"},     // is_uid at a string
      {Malformed, field + "10 d2040000 05 05 01"},        // primary_field_first_uid at no chain
      {Malformed, field + "10 d2040000 06 05 01"},        // default_state, which no parser knows
      {Malformed, field + "10 d2040000 01 00 01000000"},  // is_uid that is no bool
      {Malformed, field + "10 d2040000 07 05 01"},        // trigger_state_reset that is no integer
      {Malformed, field + "f0 d2040000 01 05 01"},        // fewer annotations than announced
  };
  for (const auto& [kind, event] : cases) {
    DecodedDatagram ignored;
    EXPECT_EQ(decodeDatagram(datagram(event), ignored), kind) << event;
  }
}

}  // namespace
}  // namespace libstatsd
