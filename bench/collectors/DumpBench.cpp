#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <json/writer.h>

#include "Benches.h"
#include "CpuUsageCollector.h"
#include "Histories.h"
#include "PsiCollector.h"
#include "SystemMemInfoCollector.h"
#include "TextScanner.h"
#include "support/Compare.h"
#include "support/Limits.h"
#include "systemstatecollector/SystemStateCollectorManager.h"

namespace bench {
namespace {

using namespace Torv::OS::Diagnostics;

constexpr int kDumpsPerRound = 3;

// The metrics of one sample as numbers that need no parsing.
using Metrics = std::vector<std::pair<Json::StaticString, Json::Value>>;

std::string readText(const Device& device, const std::string& name) {
  std::ifstream stream(device.path() + "/" + name);
  return {std::istreambuf_iterator<char>(stream), {}};
}

Metrics pressureMetrics() {
  return {{Json::StaticString("some_avg10"), 1.23F},  {Json::StaticString("some_avg60"), 0.87F},
          {Json::StaticString("some_avg300"), 0.2F},  {Json::StaticString("some_total"), 1006227413U},
          {Json::StaticString("full_avg10"), 0.12F},  {Json::StaticString("full_avg60"), 0.03F},
          {Json::StaticString("full_avg300"), 0.01F}, {Json::StaticString("full_total"), 1002113778U}};
}

Metrics memoryMetrics() {
  return {{Json::StaticString("MemTotal_KB"), 7864320U},     {Json::StaticString("MemFree_KB"), 512100U},
          {Json::StaticString("MemAvailable_KB"), 3145828U}, {Json::StaticString("Buffers_KB"), 59996U},
          {Json::StaticString("Cached_KB"), 1624416U},       {Json::StaticString("MemAvail_%"), 40.0012}};
}

Metrics oneMetric(const char* name) {
  return {{Json::StaticString(name), 39.9987}};
}

// The reference: builds the JSON tree of a report from ready numbers and prints it.
std::string reportOf(const Metrics& metrics, const Json::StreamWriterBuilder& writer) {
  static const Json::StaticString version("version");
  static const Json::StaticString time("report_time_ms");
  static const Json::StaticString series("time_series");
  static const Json::StaticString age("dt_ms");
  static const Json::StaticString values("v");
  Json::Value report(Json::objectValue);
  report[version] = Json::StaticString("1.0");
  report[time] = Json::UInt64{1795262008};
  Json::Value& list = report[series] = Json::Value(Json::arrayValue);
  for (int i = 0; i < Histories::kSamples; ++i) {
    Json::Value entry(Json::objectValue);
    entry[age] = Json::UInt64{1000} * i;
    Json::Value& sample = entry[values] = Json::Value(Json::objectValue);
    for (const auto& [name, value] : metrics) sample[name] = value;
    list.append(std::move(entry));
  }
  return Json::writeString(writer, report);
}

void dumpAgainstReadyNumbers(benchmark::State& state) {
  const Histories histories;
  const std::vector<Metrics> ready = {pressureMetrics(),
                                      pressureMetrics(),
                                      pressureMetrics(),
                                      memoryMetrics(),
                                      oneMetric("CpuUtilization_%"),
                                      oneMetric("GpuUtilization_%"),
                                      oneMetric("BatteryCharge_%")};
  Json::StreamWriterBuilder writer;
  writer["precision"] = 2;
  writer["precisionType"] = "decimal";
  compare(
      state, 1.15,
      [&] {
        for (int i = 0; i < kDumpsPerRound; ++i) {
          benchmark::DoNotOptimize(histories.manager->dumpSystemStateHistory());
        }
      },
      [&] {
        for (int i = 0; i < kDumpsPerRound; ++i) {
          for (const Metrics& metrics : ready) benchmark::DoNotOptimize(reportOf(metrics, writer));
        }
      });
}

void parseAll(const std::string& pressure, const std::string& stat, const std::string& memInfo,
              const std::string& gpu) {
  for (int i = 0; i < Histories::kSamples; ++i) {
    for (int resource = 0; resource < 3; ++resource) {
      std::string_view text = pressure;
      for (std::string_view line; nextLine(text, line);)
        benchmark::DoNotOptimize(PsiCollector::parseLine(line));
    }
    std::string_view rest = stat;
    CpuUsageCollector::CpuStats stats;
    while (CpuUsageCollector::parseNext(rest, stats)) benchmark::DoNotOptimize(stats);
    benchmark::DoNotOptimize(SystemMemInfoCollector::parse(memInfo));
    std::string_view line = gpu;
    uint64_t number = 0;
    while (nextNumber(line, number)) benchmark::DoNotOptimize(number);
  }
}

void parsingAgainstDump(benchmark::State& state) {
  const Histories histories;
  const std::string pressure = readText(histories.device, "proc/pressure/cpu");
  const std::string stat = readText(histories.device, "proc/stat");
  const std::string memInfo = readText(histories.device, "proc/meminfo");
  const std::string gpu = readText(histories.device, "sys/class/kgsl/kgsl-3d0/gpubusy_accum");
  compare(
      state, 0.05, [&] { parseAll(pressure, stat, memInfo, gpu); },
      [&] { benchmark::DoNotOptimize(histories.manager->dumpSystemStateHistory()); });
}

// Prints the longest of many polls while dumps run, and the longest dump. A poll may wait for one dump, not
// for more. Both are wall times, and a busy machine lengthens either, so there is no limit.
void pollWhileDumping(benchmark::State& state) {
  using Clock = std::chrono::steady_clock;
  using Us = std::chrono::duration<double, std::micro>;
  const Histories histories;
  std::atomic<bool> polling{true};
  Us longestDump{0};
  std::thread dumper([&] {
    while (polling) {
      const auto start = Clock::now();
      benchmark::DoNotOptimize(histories.manager->dumpSystemStateHistory());
      longestDump = std::max<Us>(longestDump, Clock::now() - start);
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  });
  Us longestPoll{0};
  for (auto _ : state) {
    const auto start = Clock::now();
    histories.manager->pollCollectors();
    longestPoll = std::max<Us>(longestPoll, Clock::now() - start);
    std::this_thread::sleep_for(std::chrono::microseconds(300));
  }
  polling = false;
  dumper.join();
  state.counters["longest_poll_us"] = longestPoll.count();
  state.counters["longest_dump_us"] = longestDump.count();
}

}  // namespace

void registerDumpBenches() {
  registerComparison("dump/sixty_samples", 51, dumpAgainstReadyNumbers);
  registerComparison("dump/parsing", 101, parsingAgainstDump);
  benchmark::RegisterBenchmark("dump/poll_meanwhile", pollWhileDumping)
      ->Iterations(rounds(2000, 10))
      ->UseRealTime();
}

}  // namespace bench
