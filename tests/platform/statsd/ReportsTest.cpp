#include <random>

#include <gtest/gtest.h>
#include <osutils/Telemetry.h>

#include "AtomStore.h"
#include "Bytes.h"
#include "ReportDecoder.h"
#include "ReportEncoder.h"

namespace libstatsd {
namespace {

using test::bytes;

// {1: 1234, 2: "screen", 3: "home"}
const std::string kFields = bytes("08 d209 12 06 73637265656e 1a 04 686f6d65");

// One configuration of a device with one event of atom 110010 at 1 s.
constexpr char kDevicesReport[] =
    "0a 05 08e807 1001 12 27 0a 25 0802 7001 22 1f 0a 1d 08 8094ebdc03 12 15 d2db35 11 08d209"
    "12 06 73637265656e 1a 04 686f6d65";

std::string payloadOf(const AtomReport& report) {
  return std::string(Torv::OS::Telemetry::parseAtom(report.atom).payload);
}

std::vector<int64_t> timestampsOf(const AtomStore& store) {
  const auto reports = decodeReportList(encodeReportList({1000, 1}, store, {}));
  std::vector<int64_t> timestamps;
  for (const AtomReport& atom : reports.value().at(0)) timestamps.push_back(atom.elapsedTimestampNs);
  return timestamps;
}

TEST(AtomStoreTest, KeepsTheNewestAndDropsNoMoreThanItMust) {
  AtomStore one;
  one.append(1, 110010, kFields);
  const size_t entry = one.bytes();
  AtomStore three(3 * entry);
  for (int64_t i = 1; i <= 3; i++) EXPECT_EQ(three.append(i, 110010, kFields), 0U);
  EXPECT_EQ(three.append(4, 110010, kFields), 1U);
  EXPECT_EQ(timestampsOf(three), (std::vector<int64_t>{2, 3, 4}));
  EXPECT_EQ(three.bytes(), 3 * entry);
}

TEST(AtomStoreTest, HoldsTwoMebibytesOfAnyAtoms) {
  AtomStore store;
  std::mt19937 random(1);
  size_t dropped = 0;
  constexpr size_t kAppended = 3000;
  for (size_t i = 0; i < kAppended; i++) {
    const std::string fields = test::concat({"\x12", std::string(random() % 4096, 'x')});
    dropped += store.append(static_cast<int64_t>(i), 110010, fields);
    ASSERT_LE(store.bytes(), 2U << 20);
  }
  EXPECT_GT(dropped, 0U);
  EXPECT_EQ(store.count(), kAppended - dropped);
  EXPECT_GT(store.bytes(), (2U << 20) - 8192) << "dropped more than room was needed for";
  std::string entries;
  store.appendTo(entries);
  EXPECT_EQ(entries.size(), store.bytes());
}

TEST(ReportEncoderTest, WritesADevicesBytes) {
  AtomStore store;
  store.append(1'000'000'000, 110010, kFields);
  const std::string metric = encodeEventMetric(store);
  EXPECT_EQ(metric, bytes(kDevicesReport).substr(11));
  const std::string list = encodeReportList({1000, 1}, store, {1, 2, 3, 4});
  EXPECT_EQ(list, test::concat(
                      {bytes("0a 05 08e807 1001 12 31 0a 25"), metric, bytes("1801 2002 2803 3004 4004")}));
}

TEST(ReportEncoderTest, LeavesOutEmptyMessagesAsADeviceDoes) {
  AtomStore store;
  EXPECT_EQ(encodeEventMetric(store), bytes("0802 7001"));
  store.append(5, 110010, "");
  EXPECT_EQ(encodeEventMetric(store), bytes("0802 7001 2204 0a02 0805"));
  const auto reports = decodeReportList(encodeReportList({1000, 1}, store, {}));
  EXPECT_EQ(Torv::OS::Telemetry::parseAtom(reports.value().at(0).at(0).atom).id, 0);
}

TEST(ReportDecoderTest, ReadsADevicesReport) {
  const auto reports = decodeReportList(bytes(kDevicesReport));
  ASSERT_TRUE(reports);
  ASSERT_EQ(reports->size(), 1U);
  const AtomReport& report = reports->at(0).at(0);
  EXPECT_EQ(report.elapsedTimestampNs, 1'000'000'000);
  EXPECT_EQ(Torv::OS::Telemetry::parseAtom(report.atom).id, 110010);
  EXPECT_EQ(payloadOf(report), kFields);
}

TEST(ReportDecoderTest, UnfoldsTheNewFormIntoTheOrderOfTime) {
  // Atom "b" at 1 s and 3 s, then atom "a" at 2 s, with its timestamps packed.
  const std::string dataB = bytes("0a 06 d2db35 02 0862  10 8094ebdc03 10 80bcc1960b");
  const std::string dataA = bytes("0a 06 d2db35 02 0861  12 05 80a8d6b907");
  const auto wrap = [](char tag, const std::string& contents) {
    return test::concat({std::string(1, tag), std::string(1, static_cast<char>(contents.size())), contents});
  };
  const std::string events = wrap(0x0a, wrap(0x22, dataB)) + wrap(0x0a, wrap(0x22, dataA));
  const std::string list = wrap(0x12, wrap(0x0a, wrap(0x22, events)));
  const auto reports = decodeReportList(list);
  ASSERT_TRUE(reports);
  std::string order;
  for (const AtomReport& report : reports->at(0)) order += payloadOf(report).back();
  EXPECT_EQ(order, "bab");
  EXPECT_EQ(reports->at(0).at(1).elapsedTimestampNs, 2'000'000'000);
}

TEST(ReportDecoderTest, KeepsTheOrderOfArrivalWhereTimesDisagree) {
  AtomStore store;
  for (const int64_t timestamp : {7, -3, 5, 0}) store.append(timestamp, 110010, kFields);
  EXPECT_EQ(timestampsOf(store), (std::vector<int64_t>{7, -3, 5, 0}));
}

TEST(ReportDecoderTest, SkipsWhatItDoesNotKnowAndRefusesWhatIsCut) {
  const std::string whole = bytes(kDevicesReport);
  const std::string uidMap = bytes("12 05 12 03 0a0178");  // a report with nothing but a uid map
  const auto reports = decodeReportList(test::concat({whole, uidMap}));
  ASSERT_TRUE(reports);
  EXPECT_EQ(reports->size(), 2U);
  EXPECT_TRUE(reports->at(1).empty());
  EXPECT_TRUE(decodeReportList("").value().empty());
  for (size_t size = 1; size < whole.size(); size++) {
    if (size == 7) continue;  // between two whole fields
    EXPECT_FALSE(decodeReportList(std::string_view(whole).substr(0, size))) << size;
  }
}

}  // namespace
}  // namespace libstatsd
