// Kernel files for collectors to read, and their histories for tests to look at.
#pragma once

#include <fstream>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>
#include <json/value.h>

#include "support/TempDir.h"
#include "systemstatecollector/SystemStateCollector.h"

namespace test {

using Strings = std::vector<std::string>;
using Torv::OS::Diagnostics::SystemStateCollectorConfig;

// A device root with one file, whose text changes under its open readers, as the kernel's do.
class Source {
 public:
  explicit Source(std::string path, std::string_view text = "") : mPath(std::move(path)) { set(text); }
  void set(std::string_view text) { mRoot.write(mPath, text); }
  std::ifstream open() const { return std::ifstream(mRoot.path(mPath)); }

 private:
  const TempDir mRoot;
  const ScopedEnv mEnvironment{"TORV_DEVICE_ROOT", mRoot.path()};
  const std::string mPath;
};

// JSON text as a value; throws if it does not parse.
Json::Value json(const std::string& text);

// The metrics of each sample of the collector's only history, newest first, on one line each. The numbers are
// as in the report.
Strings metrics(Torv::OS::Diagnostics::SystemStateCollector& collector);

// The same, oldest first, of a collector that has sampled each of the texts in turn. Both ways of reading a
// source must give the same: the file that init() opens, and the stream that a constructor takes.
template <typename Collector>
Strings metricsOf(const std::string& path, std::initializer_list<std::string_view> texts) {
  Source source(path);
  const auto opened = Collector::init(SystemStateCollectorConfig(60, 1));
  Collector streamed(SystemStateCollectorConfig(60, 1), source.open());
  for (const std::string_view text : texts) {
    source.set(text);
    EXPECT_TRUE(opened->collectSystemStateData());
    EXPECT_TRUE(streamed.collectSystemStateData());
  }
  const Strings newestFirst = metrics(*opened);
  EXPECT_EQ(metrics(streamed), newestFirst);
  return {newestFirst.rbegin(), newestFirst.rend()};
}

}  // namespace test
