#include "AtomIntake.h"

#include <statsd/StatsEvent.h>

#include "StatsdFixture.h"
#include "support/LogCapture.h"
#include "support/Result.h"

namespace libstatsd {
namespace {

constexpr int64_t kSecondNs = 1'000'000'000;
constexpr uid_t kService = 1000;
constexpr uid_t kApplication = 10123;
constexpr uid_t kStranger = 4711;
constexpr ConfigKey kKey{1000, 57476};

std::string datagram(std::string_view event) {
  return bytes("05 3412 80005962 00000000 74617473").append(event);
}

std::string stateDatagram(std::string_view value = "home") {
  return datagram(StatsEvent(110010, 5).addInt32(1).addString("screen").addString(value).encoded());
}

std::vector<int64_t> timesOf(const std::vector<AtomRecord>& atoms) {
  std::vector<int64_t> times;
  for (const AtomRecord& atom : atoms) times.push_back(atom.elapsedTimestampNs);
  return times;
}

class AtomIntakeTest : public testing::Test {
 protected:
  AtomIntakeTest() { mIntake.configure(kKey, {{110010, 111983}, {"AID_APP", "com.pellux.quorrel"}}); }

  StatsdStatus status() const {
    StatsdStatus status;
    mIntake.describe(status);
    return status;
  }

  AtomIntake mIntake{kService, ApplicationUids()};
};

TEST_F(AtomIntakeTest, everyDatagramIsCountedOnce) {
  const std::string note = bytes("05 3412 80005962 00000000 f5ffffff 01 03000000baad0100");
  for (const std::string& sent :
       {stateDatagram(), datagram(StatsEvent(110011).encoded()), stateDatagram(std::string(5000, 'x')),
        datagram("x"), stateDatagram().substr(0, 12), std::string(), note}) {
    mIntake.receive(sent, kApplication);
  }
  mIntake.receive(stateDatagram(), kStranger);
  mIntake.receiveTooLong(kApplication);
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
  mIntake.receive(stateDatagram(), kApplication);
  const std::string large = stateDatagram(std::string(4000, 'x'));
  for (int i = 0; i < 600; ++i) mIntake.receive(large, kApplication + 1);
  mIntake.receive(stateDatagram(), kApplication);
  const StatsdStatus shown = parseStatsdStatus(formatStatsdStatus(status())).value();
  ASSERT_EQ(shown.uids.size(), 2U);
  const auto& [flood, other] = std::pair(shown.uids[0], shown.uids[1]);
  EXPECT_EQ(flood.uid, kApplication + 1) << "the uid that lost most comes first";
  EXPECT_EQ(flood.received, 600U);
  EXPECT_EQ(flood.droppedFull, 600 - flood.held);
  EXPECT_GT(flood.held, 500U);
  EXPECT_EQ(other.held, 2U);
  EXPECT_EQ(other.droppedFull, 0U);
  EXPECT_EQ(mIntake.take(kKey).size(), flood.held + 2);
}

TEST_F(AtomIntakeTest, whatIsNotHeardIsCountedForEachUidAndTheListIsBounded) {
  for (uid_t uid = 20000; uid < 30000; ++uid) mIntake.receive(stateDatagram(), uid);
  EXPECT_EQ(status().counters.droppedSender, 10000U);
  EXPECT_EQ(status().uids.size(), kMaxListedUids);
  EXPECT_EQ(status().uids[0].notHeard, 1U);
}

TEST_F(AtomIntakeTest, whatFullStoresDropIsLoggedOnceAMinute) {
  const std::string large = stateDatagram(std::string(4000, 'x'));
  const auto noticesAfter = [&](uint64_t dropped, int64_t seconds) {
    while (status().counters.droppedFull < dropped) mIntake.receive(large, kApplication);
    return mIntake.takeNotices(seconds * kSecondNs);
  };
  EXPECT_THAT(noticesAfter(3, 0), ElementsAre(HasSubstr("oldest 3 atoms")));
  EXPECT_THAT(noticesAfter(7, 59), testing::IsEmpty());
  EXPECT_THAT(noticesAfter(9, 60), ElementsAre(HasSubstr("oldest 6 atoms")));
}

TEST(AtomStoreTest, handsOverInOrderOfArrivalAndDropsNoMoreThanItMust) {
  const AtomRecord atom{0, 110010, std::string(50, 'x')};
  AtomStore store(4 * atom.bytes());
  const auto add = [&](uid_t sender, int64_t time) {
    return store.add(sender, {time, atom.atomId, atom.payload});
  };
  for (const auto& [sender, time] : {std::pair(1U, 9), {2U, 7}, {1U, 3}, {1U, 8}}) {
    EXPECT_TRUE(add(sender, time).empty());
  }
  EXPECT_EQ(add(2, 5), std::vector<uid_t>{1}) << "uid 1 holds most";
  EXPECT_EQ(store.count(), 4U);
  EXPECT_EQ(timesOf(store.take()), (std::vector<int64_t>{7, 3, 8, 5}));
  EXPECT_EQ(store.count(), 0U);
}

TEST(LogSourcesTest, allowsFixedUidsApplicationsAndTheServiceItself) {
  const LogSources all({"AID_APP", "AID_SYSTEM", "com.pellux.vantry"}, 1234, {});
  for (const uid_t uid : {10000, 19999, 1010000, 1000, 1234}) EXPECT_TRUE(all.allow(uid)) << uid;
  for (const uid_t uid : {0, 9999, 20000, 99000, 1001000, 2000, 65534}) EXPECT_FALSE(all.allow(uid)) << uid;
  for (const uid_t uid : {1234, 10000}) EXPECT_FALSE(LogSources({"AID_SYSTEM"}, 1234, {}).allow(uid)) << uid;
  EXPECT_FALSE(LogSources({"AID_NO_SUCH"}, 1234, {}).allow(0));
}

TEST(ApplicationUidsTest, areThoseOfTheEnvironmentOrTheDevicesIfThatDoesNotParse) {
  const auto uids = ApplicationUids::parse("1000-59999,70000").value();
  for (const uid_t uid : {1000, 59999, 70000}) EXPECT_TRUE(uids.contains(uid)) << uid;
  for (const uid_t uid : {999, 60000, 69999, 70001, 110000}) EXPECT_FALSE(uids.contains(uid)) << uid;
  for (const char* wrong : {"x", "1000-", "-5", "5-4", "1,,2", "1,", "4294967296", "1 - 2", "1-2-3"}) {
    EXPECT_THAT(test::errorOf(ApplicationUids::parse(wrong)), HasSubstr("neither a uid nor a range"))
        << wrong;
    const test::LogCapture log;
    const test::ScopedEnv environment("TORV_APP_UIDS", wrong);
    EXPECT_TRUE(ApplicationUids::ofThisHost().contains(10000)) << "the default";
    EXPECT_THAT(log.texts(ANDROID_LOG_ERROR), ElementsAre(HasSubstr(std::string("TORV_APP_UIDS=") + wrong)));
  }
  const test::ScopedEnv environment("TORV_APP_UIDS", "5");
  EXPECT_TRUE(ApplicationUids::ofThisHost().contains(5));
  EXPECT_FALSE(ApplicationUids::ofThisHost().contains(10000));
}

}  // namespace
}  // namespace libstatsd
