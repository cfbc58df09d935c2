#include "AtomStore.h"
#include "ReportDecoder.h"
#include "ReportEncoder.h"
#include "StatsdFixture.h"

namespace libstatsd {
namespace {

// {1: 1234, 2: "screen", 3: "home"}
const std::string kFields = bytes("08 d209 12 06 73637265656e 1a 04 686f6d65");

// One configuration of a device with one event of atom 110010 at 1 s.
const std::string kDevicesReport = bytes(
    "0a 05 08e807 1001 12 27 0a 25 0802 7001 22 1f 0a 1d 08 8094ebdc03 12 15 d2db35 11 08d209"
    "12 06 73637265656e 1a 04 686f6d65");

TEST(AtomStoreTest, KeepsTheNewestInTheOrderOfArrivalAndDropsNoMoreThanItMust) {
  AtomStore one;
  one.append(1, 110010, kFields);
  AtomStore three(3 * one.bytes());
  for (const int64_t time : {9, 7, 3}) EXPECT_EQ(three.append(time, 110010, kFields), 0U);
  EXPECT_EQ(three.append(5, 110010, kFields), 1U);
  EXPECT_EQ(three.bytes(), 3 * one.bytes());
  std::vector<int64_t> times;
  const auto reports = decodeReportList(encodeReportList({1000, 1}, three, {}));
  for (const AtomReport& atom : reports.value().at(0)) times.push_back(atom.elapsedTimestampNs);
  EXPECT_EQ(times, (std::vector<int64_t>{7, 3, 5}));
}

TEST(ReportEncoderTest, WritesADevicesBytes) {
  AtomStore store;
  EXPECT_EQ(encodeEventMetric(store), bytes("0802 7001")) << "no empty list";
  store.append(1'000'000'000, 110010, kFields);
  const std::string metric = encodeEventMetric(store);
  EXPECT_EQ(metric, kDevicesReport.substr(11));
  EXPECT_EQ(encodeReportList({1000, 1}, store, {1, 2, 3, 4}),
            bytes("0a 05 08e807 1001 12 31 0a 25") + metric + bytes("1801 2002 2803 3004 4004"));
  AtomStore empty;
  empty.append(5, 110010, "");
  EXPECT_EQ(encodeEventMetric(empty), bytes("0802 7001 2204 0a02 0805"))
      << "an atom without a field is left out";
}

TEST(ReportDecoderTest, ReadsADevicesReportSkipsWhatItDoesNotKnowAndRefusesWhatIsCut) {
  const std::string uidMap = bytes("12 05 12 03 0a0178");  // a report with nothing but a uid map
  const auto reports = decodeReportList(kDevicesReport + uidMap).value();
  ASSERT_EQ(reports.size(), 2U);
  EXPECT_EQ(reports[0].at(0).elapsedTimestampNs, 1'000'000'000);
  EXPECT_EQ(payloadOf(reports[0].at(0)), kFields);
  EXPECT_TRUE(reports[1].empty());
  EXPECT_TRUE(decodeReportList("").value().empty());
  for (size_t size = 1; size < kDevicesReport.size(); size++) {
    // At 7 the first field is whole.
    EXPECT_EQ(decodeReportList(kDevicesReport.substr(0, size)).has_value(), size == 7) << size;
  }
}

TEST(ReportDecoderTest, UnfoldsTheNewFormIntoTheOrderOfTime) {
  // Atom "b" at 1 s and 3 s, then atom "a" at 2 s, with its timestamps packed.
  const auto reports =
      decodeReportList(bytes("12 2f 0a 2d 22 2b 0a 16 22 14 0a 06 d2db35 02 0862 10 8094ebdc03 10 80bcc1960b"
                             "0a 11 22 0f 0a 06 d2db35 02 0861 12 05 80a8d6b907"))
          .value();
  std::string order;
  for (const AtomReport& report : reports.at(0)) order += payloadOf(report).back();
  EXPECT_EQ(order, "bab");
  EXPECT_EQ(reports.at(0).at(1).elapsedTimestampNs, 2'000'000'000);
}

}  // namespace
}  // namespace libstatsd
