// Kernel files for collectors to read, and their histories for tests to look at.
#pragma once

#include <fstream>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include <json/value.h>

#include "support/TempDir.h"
#include "systemstatecollector/SystemStateCollector.h"

namespace test {

using Strings = std::vector<std::string>;
using Torv::OS::Diagnostics::SystemStateCollectorConfig;

// A file whose text changes under its open readers, as the kernel's do.
class Source {
 public:
  explicit Source(std::string_view text = "") { set(text); }
  void set(std::string_view text) { mDirectory.write("source", text); }
  std::ifstream open() const { return std::ifstream(mDirectory.path("source")); }

 private:
  TempDir mDirectory;
};

// JSON text as a value; throws where it does not parse.
Json::Value json(const std::string& text);

// The metrics of each sample of the collector's only history, newest first, on one line each. The numbers are
// as in the report.
Strings metrics(Torv::OS::Diagnostics::SystemStateCollector& collector);

// The same of a collector that has sampled each of the texts in turn, oldest first.
template <typename Collector>
Strings metricsOf(std::initializer_list<std::string_view> texts) {
  Source source;
  Collector collector(SystemStateCollectorConfig(60, 1), source.open());
  for (const std::string_view text : texts) {
    source.set(text);
    collector.collectSystemStateData();
  }
  const Strings newestFirst = metrics(collector);
  return {newestFirst.rbegin(), newestFirst.rend()};
}

}  // namespace test
