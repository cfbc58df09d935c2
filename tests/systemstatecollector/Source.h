// Kernel files for collectors to read, and their histories for tests to look at.
#pragma once

#include <fstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <json/reader.h>
#include <json/writer.h>

#include "support/TempDir.h"
#include "systemstatecollector/SystemStateCollector.h"

namespace test {

using Strings = std::vector<std::string>;
using Torv::OS::Diagnostics::SystemStateCollector;
using Torv::OS::Diagnostics::SystemStateCollectorConfig;

inline Json::Value json(const std::string& text) {
  Json::Value value;
  std::istringstream(text) >> value;
  return value;
}

// The metrics of each sample of the collector's only history, newest first, as "name=value name=value". The
// numbers are as in the report.
inline Strings metrics(SystemStateCollector& collector) {
  Json::StreamWriterBuilder writer;
  writer["precision"] = 15;
  Strings lines;
  const Json::Value report = json(collector.dumpSystemStateHistory()->begin()->second);
  for (const Json::Value& entry : report["time_series"]) {
    std::string& line = lines.emplace_back();
    for (const std::string& name : entry["v"].getMemberNames()) {
      line += (line.empty() ? "" : " ") + name + "=" + Json::writeString(writer, entry["v"][name]);
    }
  }
  return lines;
}

// The same, oldest first, of a collector that has sampled each of the texts in turn from the file at `path`
// of a device. Both ways of reading a source must give the same: the file that init() opens, and the stream
// that a constructor takes.
template <typename Collector>
Strings metricsOf(const std::string& path, const Strings& texts) {
  const HostDir host;
  const std::string file = host.write(path, "");
  const SystemStateCollectorConfig config(60, 1);
  const auto opened = Collector::init(config);
  Collector streamed(config, std::ifstream(file));
  for (const std::string& text : texts) {
    host.write(path, text);
    EXPECT_TRUE(opened->collectSystemStateData());
    EXPECT_TRUE(streamed.collectSystemStateData());
  }
  const Strings newestFirst = metrics(*opened);
  EXPECT_EQ(metrics(streamed), newestFirst);
  return {newestFirst.rbegin(), newestFirst.rend()};
}

}  // namespace test
