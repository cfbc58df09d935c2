#include "AtomIntake.h"

#include "StatsdFixture.h"
#include "support/LogCapture.h"
#include "support/Result.h"

namespace libstatsd {
namespace {

constexpr uid_t kApplication = 10123;
constexpr ConfigKey kKey{1000, kConfigId};

const std::string kState = datagram("07 03 01 0500000000000000 00 baad0100 05 01");
const std::string kLarge = datagram("07 03 01 0500000000000000 00 baad0100 02 a00f0000").append(4000, 'x');

class AtomIntakeTest : public testing::Test {
 protected:
  AtomIntakeTest() { EXPECT_TRUE(mIntake.configure(kKey, {kStateAtom}, {"AID_APP", "com.pellux.quorrel"})); }

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
  EXPECT_EQ(flood.received, 600U);
  EXPECT_EQ(flood.droppedFull, 600 - flood.held);
  EXPECT_GT(flood.held, 500U);
  EXPECT_EQ(other.held, 2U);
  EXPECT_EQ(other.droppedFull, 0U);
  EXPECT_EQ(mIntake.take(kKey).size(), flood.held + 2);
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
  EXPECT_FALSE(mIntake.configure({1000, 1}, {kStateAtom}, {"AID_APP"}));
  EXPECT_TRUE(mIntake.take({1000, 1}).empty());
  EXPECT_TRUE(mIntake.configure(kKey, {kStateAtom}, {"AID_LMKD"}));
  EXPECT_FALSE(mIntake.status(kApplication).askerHeard);
  EXPECT_EQ(mIntake.take(kKey).size(), 1U) << "what was kept stays";
}

TEST(AtomStoreTest, handsOverInOrderOfArrivalAndDropsNoMoreThanItMust) {
  AtomStore store(4 * kAtomBytes);
  for (const auto& [sender, time] : {std::pair(1U, 9), {2U, 7}, {1U, 3}, {1U, 8}}) {
    EXPECT_TRUE(store.add(sender, {time, {}}).empty());
  }
  EXPECT_EQ(store.add(2, {5, {}}), std::vector<uid_t>{1}) << "uid 1 holds most";
  std::vector<int64_t> times;
  for (const AtomReport& atom : store.take()) times.push_back(atom.elapsedTimestampNs);
  EXPECT_EQ(times, (std::vector<int64_t>{7, 3, 8, 5}));
  EXPECT_TRUE(store.take().empty());
}

TEST(LogSourcesTest, allowsFixedUidsApplicationsAndTheServiceItself) {
  const UidRanges all = uidsOfSources({"AID_APP", "AID_SYSTEM", "com.pellux.vantry"}, 1234, {});
  for (const uid_t uid : {10000, 19999, 1010000, 1000, 1234}) EXPECT_TRUE(contains(all, uid)) << uid;
  for (const uid_t uid : {0, 9999, 20000, 99000, 1001000, 2000, 65534})
    EXPECT_FALSE(contains(all, uid)) << uid;
  const UidRanges system = uidsOfSources({"AID_SYSTEM", "AID_NO_SUCH"}, 1234, {});
  for (const uid_t uid : {0, 1234, 10000}) EXPECT_FALSE(contains(system, uid)) << uid;
}

TEST(ApplicationUidsTest, areThoseOfTheEnvironmentOrTheDevicesIfThatDoesNotParse) {
  const UidRanges uids = ApplicationUids::parse("1000-59999,70000").value().ranges;
  for (const uid_t uid : {1000, 59999, 70000}) EXPECT_TRUE(contains(uids, uid)) << uid;
  for (const uid_t uid : {999, 60000, 69999, 70001, 110000}) EXPECT_FALSE(contains(uids, uid)) << uid;
  for (const char* wrong :
       {"x", "1000-", "-5", "5-4", "1,,2", "1,", "4294967296", "1 - 2", "1-2-3", "0x10", "+1", " 1"}) {
    EXPECT_THAT(test::errorOf(ApplicationUids::parse(wrong)), HasSubstr("neither a uid nor a range"))
        << wrong;
    const test::LogCapture log;
    const test::ScopedEnv environment("TORV_APP_UIDS", wrong);
    EXPECT_TRUE(contains(ApplicationUids::ofThisHost().ranges, 10000)) << "the default";
    EXPECT_THAT(log.texts(ANDROID_LOG_ERROR), ElementsAre(HasSubstr(std::string("TORV_APP_UIDS=") + wrong)));
  }
  const test::ScopedEnv environment("TORV_APP_UIDS", "5");
  EXPECT_EQ(ApplicationUids::ofThisHost().text, "5");
  EXPECT_FALSE(contains(ApplicationUids::ofThisHost().ranges, 10000));
}

}  // namespace
}  // namespace libstatsd
