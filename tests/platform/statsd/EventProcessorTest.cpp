#include "EventProcessor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <statsd/StatsEvent.h>

#include "Bytes.h"

namespace libstatsd {
namespace {

using std::chrono::seconds;
using test::bytes;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr uid_t kService = 1000;
constexpr uid_t kApplication = 10123;
constexpr uid_t kStranger = 4711;
constexpr ConfigKey kKey{1000, 57476};

std::string datagram(std::string_view event) {
  return test::concat({bytes("05 3412 80005962 00000000 74617473"), event});
}

std::string stateDatagram(std::string_view value = "home") {
  return datagram(StatsEvent(110010, 5).addInt32(1).addString("screen").addString(value).encoded());
}

class EventProcessorTest : public testing::Test {
 protected:
  EventProcessorTest() { mProcessor.configure(kKey, {{110010, 111983}, {"AID_APP", "com.pellux.quorrel"}}); }

  EventProcessor mProcessor{kService};
  const EventProcessor::Clock::time_point mNow{seconds(1000)};
};

TEST_F(EventProcessorTest, HandsKeptAtomsOverOnce) {
  mProcessor.receive(stateDatagram(), kApplication);
  mProcessor.receive(stateDatagram(), kService);
  EXPECT_EQ(mProcessor.counters().held, 2U);
  EXPECT_EQ(mProcessor.take({kKey.uid, 1}).count(), 0U) << "an unknown configuration";
  EXPECT_EQ(mProcessor.take(kKey).count(), 2U);
  EXPECT_EQ(mProcessor.take(kKey).count(), 0U);
  EXPECT_EQ(mProcessor.counters().fetched, 2U);
  EXPECT_EQ(mProcessor.counters().held, 0U);
}

TEST_F(EventProcessorTest, CountsEveryDatagramOnce) {
  mProcessor.receive(stateDatagram(), kApplication);
  mProcessor.receive(datagram(StatsEvent(110011).encoded()), kApplication);
  mProcessor.receive(stateDatagram(std::string(5000, 'x')), kApplication);
  mProcessor.receive(datagram("x"), kApplication);
  mProcessor.receive(stateDatagram().substr(0, 12), kApplication);
  mProcessor.receive("", kApplication);
  mProcessor.receive(stateDatagram(), kStranger);
  mProcessor.receiveTooLong(kApplication);
  mProcessor.receive(bytes("05 3412 80005962 00000000 f5ffffff 01 03000000baad0100"), kApplication);

  const StatsdCounters counters = mProcessor.counters();
  EXPECT_EQ(counters.received, 9U);
  EXPECT_EQ(counters.decoded, 2U);
  EXPECT_EQ(counters.droppedUnwanted, 1U);
  EXPECT_EQ(counters.droppedErrors, 1U);
  EXPECT_EQ(counters.droppedMalformed, 3U);
  EXPECT_EQ(counters.droppedSender, 1U);
  EXPECT_EQ(counters.droppedTooLong, 1U);
  EXPECT_EQ(counters.dropNotes, 1U);
  EXPECT_EQ(counters.lostBySenders, 3U);
  EXPECT_EQ(counters.held, 1U);
}

TEST_F(EventProcessorTest, GivesEachConfigurationItsOwnAtoms) {
  const ConfigKey other{1000, 2};
  mProcessor.configure(other, {{110010}, {"AID_SHELL"}});
  mProcessor.receive(stateDatagram(), 2000);
  mProcessor.receive(stateDatagram(), kApplication);
  mProcessor.configure(kKey, {{111983}, {"AID_APP"}});
  mProcessor.receive(stateDatagram(), kApplication);
  EXPECT_EQ(mProcessor.take(other).count(), 1U);
  EXPECT_EQ(mProcessor.take(kKey).count(), 1U) << "new rules keep what was held and hold from then on";
}

TEST_F(EventProcessorTest, SaysEachKindOfDropOnce) {
  for (int i = 0; i < 3; i++) {
    mProcessor.receive("junk", kApplication);
    mProcessor.receive(stateDatagram(), kStranger);
  }
  EXPECT_THAT(mProcessor.takeNotices(mNow),
              ElementsAre(HasSubstr("uid 10123 sent 4 bytes"), HasSubstr("uid 4711 is not heard")));
  mProcessor.receive("junk", kApplication);
  EXPECT_THAT(mProcessor.takeNotices(mNow + seconds(3600)), IsEmpty());
}

TEST_F(EventProcessorTest, SaysOnceAMinuteWhatFullStoresDropped) {
  const std::string large = stateDatagram(std::string(4000, 'x'));
  const auto overfill = [&](size_t by) {
    const uint64_t before = mProcessor.counters().droppedFull;
    while (mProcessor.counters().droppedFull < before + by) mProcessor.receive(large, kApplication);
  };
  EXPECT_THAT(mProcessor.takeNotices(mNow), IsEmpty());
  overfill(3);
  EXPECT_THAT(mProcessor.takeNotices(mNow), ElementsAre(HasSubstr("oldest 3 atoms")));
  overfill(4);
  EXPECT_THAT(mProcessor.takeNotices(mNow + seconds(59)), IsEmpty());
  overfill(2);
  EXPECT_THAT(mProcessor.takeNotices(mNow + seconds(60)), ElementsAre(HasSubstr("oldest 6 atoms")));
  EXPECT_LT(mProcessor.counters().held, 530U);
}

TEST(LogSourcesTest, AllowsFixedUidsApplicationsAndTheServiceItself) {
  const LogSources all({"AID_APP", "AID_SYSTEM", "com.pellux.vantry"}, 1234);
  for (const uid_t uid : {10000, 19999, 1010000, 1000, 1234}) EXPECT_TRUE(all.allow(uid)) << uid;
  for (const uid_t uid : {0, 9999, 20000, 99000, 1001000, 2000, 65534}) EXPECT_FALSE(all.allow(uid)) << uid;
  const LogSources system({"AID_SYSTEM"}, 1234);
  EXPECT_FALSE(system.allow(1234));
  EXPECT_FALSE(system.allow(10000));
  EXPECT_FALSE(LogSources({"AID_NO_SUCH"}, 1234).allow(0));
}

TEST(StatsdStatusTest, ComesBackFromItsText) {
  StatsdStatus status;
  status.servicePid = 12;
  status.askerUid = 10123;
  status.askerHeard = true;
  status.allowedSources = "AID_APP AID_SYSTEM";
  uint64_t next = uint64_t{1} << 63;
  forEachCounter(status.counters, [&](const char*, uint64_t& count) { count = next++; });
  StatsdStatus read;
  ASSERT_TRUE(parseStatsdStatus(formatStatsdStatus(status) + "of_a_later_version x\n", &read));
  EXPECT_EQ(formatStatsdStatus(read), formatStatsdStatus(status));
  EXPECT_FALSE(parseStatsdStatus("", &read)) << "a service that closed without a word";
  EXPECT_FALSE(parseStatsdStatus("received x\n", &read));
  EXPECT_FALSE(parseStatsdStatus("received", &read));
}

}  // namespace
}  // namespace libstatsd
