// What the collectors of kernel texts have in common, seen through one of them.
#include "TextCollector.h"

#include <fcntl.h>
#include <unistd.h>

#include <string>

#include <gtest/gtest.h>

#include "PsiCollector.h"
#include "Source.h"
#include "support/LogCapture.h"

using namespace Torv::OS::Diagnostics;

namespace {

constexpr char kName[] = "psi_io_history";
const SystemStateCollectorConfig kConfig(60, 1);

PsiIoCollector collectorOf(const test::Source& source) {
  return PsiIoCollector(kConfig, source.open());
}

std::string lineWithTotal(int total) {
  return "some avg10=0.00 avg60=0.00 avg300=0.00 total=" + std::to_string(total) + "\n";
}

// The totals of the samples, newest first; -1 for a sample without one.
std::vector<int> totalsOf(SystemStateCollector& collector) {
  std::vector<int> totals;
  for (const Json::Value& value : test::valuesOf(collector, kName)) {
    totals.push_back(value.get("some_total", -1).asInt());
  }
  return totals;
}

}  // namespace

TEST(TextCollector, SamplesTheTextAsItIsNow) {
  test::Source source;
  PsiIoCollector collector = collectorOf(source);
  EXPECT_TRUE(totalsOf(collector).empty());
  // Longer, shorter, nothing, and more than any stream's buffer: no sample may show the remains of another.
  const std::string longText = std::string(100'000, '\n') + lineWithTotal(5);
  test::sampleEach(collector, source,
                   {lineWithTotal(123456), lineWithTotal(3), "", longText, lineWithTotal(6)});
  EXPECT_EQ(totalsOf(collector), (std::vector<int>{6, 5, -1, 3, 123456}));
  EXPECT_EQ(totalsOf(collector).size(), 5U) << "a dump must not take anything away";
}

TEST(TextCollector, KeepsTheLastSamplesOnly) {
  test::Source source;
  PsiIoCollector collector(SystemStateCollectorConfig(2, 1), source.open());
  test::sampleEach(collector, source, {lineWithTotal(1), lineWithTotal(2), lineWithTotal(3)});
  EXPECT_EQ(totalsOf(collector), (std::vector<int>{3, 2}));
}

TEST(TextCollector, ABadStreamIsReportedEachTimeAndStoresNothing) {
  test::Source source(lineWithTotal(1));
  std::ifstream stream = source.open();
  stream.setstate(std::ios::badbit);
  PsiIoCollector collector(kConfig, std::move(stream));
  test::LogCapture log;
  EXPECT_FALSE(collector.collectSystemStateData());
  EXPECT_FALSE(collector.collectSystemStateData());
  EXPECT_EQ(log.texts(ANDROID_LOG_ERROR), std::vector<std::string>(2, "PSI io Stream is bad"));
  EXPECT_TRUE(totalsOf(collector).empty());
}

TEST(TextCollector, AStreamAtItsEndOrFailedIsNotBad) {
  test::Source source(lineWithTotal(1));
  std::ifstream stream = source.open();
  stream.setstate(std::ios::eofbit | std::ios::failbit);
  PsiIoCollector collector(kConfig, std::move(stream));
  EXPECT_TRUE(collector.collectSystemStateData());
  EXPECT_EQ(totalsOf(collector), (std::vector<int>{1}));
}

// Around the sizes of the buffers that the text comes through.
TEST(TextCollector, ATextOfAnySizeIsReadWhole) {
  const test::TempDir root;
  const test::ScopedEnv environment("TORV_DEVICE_ROOT", root.path());
  root.write("text", "");
  auto source = TextSource::open("/text");
  ASSERT_TRUE(source);
  std::string found;
  for (const size_t size : {40'000, 16'385, 16'384, 16'383, 8'193, 8'192, 8'191, 4'096, 1, 0, 100'000}) {
    std::string text(size, 'x');
    if (size > 0) text.back() = 'y';
    root.write("text", text);
    source->readInto(found);
    EXPECT_TRUE(found == text) << size << " characters read as " << found.size();
  }
}

// A directory opens like a file and fails to read, as a file does whose driver has gone for a while.
TEST(TextCollector, AFailedReadIsAnEmptySampleAndTheNextOneRecovers) {
  test::TempDir directory;
  const std::string file = directory.write("later", lineWithTotal(7));
  const int descriptor = open("/dev/null", O_RDONLY | O_CLOEXEC);
  ASSERT_GE(descriptor, 0);
  close(descriptor);  // so that it is the stream's
  PsiIoCollector collector(kConfig, std::ifstream(directory.path()));

  EXPECT_TRUE(collector.collectSystemStateData());
  const int readable = open(file.c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(dup3(readable, descriptor, O_CLOEXEC), descriptor);
  close(readable);
  EXPECT_TRUE(collector.collectSystemStateData());
  EXPECT_EQ(totalsOf(collector), (std::vector<int>{7, -1}));
}
