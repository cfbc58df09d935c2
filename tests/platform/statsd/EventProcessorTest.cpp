#include "EventProcessor.h"

#include <statsd/StatsEvent.h>

#include "StatsdFixture.h"

namespace libstatsd {
namespace {

using std::chrono::seconds;

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

class EventProcessorTest : public testing::Test {
 protected:
  EventProcessorTest() { mProcessor.configure(kKey, {{110010, 111983}, {"AID_APP", "com.pellux.quorrel"}}); }

  EventProcessor mProcessor{kService};
};

TEST_F(EventProcessorTest, CountsEveryDatagramOnce) {
  const std::string note = bytes("05 3412 80005962 00000000 f5ffffff 01 03000000baad0100");
  for (const std::string& sent :
       {stateDatagram(), datagram(StatsEvent(110011).encoded()), stateDatagram(std::string(5000, 'x')),
        datagram("x"), stateDatagram().substr(0, 12), std::string(), note}) {
    mProcessor.receive(sent, kApplication);
  }
  mProcessor.receive(stateDatagram(), kStranger);
  mProcessor.receiveTooLong(kApplication);
  std::string counted;
  StatsdCounters counters = mProcessor.counters();
  forEachCounter(counters, [&](const char* name, uint64_t count) {
    if (count != 0) counted += name + std::string(" ") + std::to_string(count) + ", ";
  });
  EXPECT_EQ(counted,
            "received 9, decoded 2, dropped_malformed 3, dropped_too_long 1, dropped_errors 1, "
            "dropped_sender 1, dropped_unwanted 1, drop_notes 1, lost_by_senders 3, held 1, ");
}

TEST_F(EventProcessorTest, SaysOnceAMinuteWhatFullStoresDropped) {
  const std::string large = stateDatagram(std::string(4000, 'x'));
  const auto noticesAfter = [&](uint64_t dropped, seconds time) {
    while (mProcessor.counters().droppedFull < dropped) mProcessor.receive(large, kApplication);
    return mProcessor.takeNotices(EventProcessor::Clock::time_point(time));
  };
  EXPECT_THAT(noticesAfter(3, seconds(0)), ElementsAre(HasSubstr("oldest 3 atoms")));
  EXPECT_THAT(noticesAfter(7, seconds(59)), testing::IsEmpty());
  EXPECT_THAT(noticesAfter(9, seconds(60)), ElementsAre(HasSubstr("oldest 6 atoms")));
  EXPECT_LT(mProcessor.counters().held, 530U);
}

TEST(LogSourcesTest, AllowsFixedUidsApplicationsAndTheServiceItself) {
  const LogSources all({"AID_APP", "AID_SYSTEM", "com.pellux.vantry"}, 1234);
  for (const uid_t uid : {10000, 19999, 1010000, 1000, 1234}) EXPECT_TRUE(all.allow(uid)) << uid;
  for (const uid_t uid : {0, 9999, 20000, 99000, 1001000, 2000, 65534}) EXPECT_FALSE(all.allow(uid)) << uid;
  for (const uid_t uid : {1234, 10000}) EXPECT_FALSE(LogSources({"AID_SYSTEM"}, 1234).allow(uid)) << uid;
  EXPECT_FALSE(LogSources({"AID_NO_SUCH"}, 1234).allow(0));
}

}  // namespace
}  // namespace libstatsd
