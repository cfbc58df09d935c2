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

// A file whose text changes under its open readers, as the kernel's do.
class Source {
 public:
  explicit Source(std::string_view text = "");

  void set(std::string_view text);
  std::ifstream open() const;

 private:
  TempDir mDirectory;
  std::string mPath;
};

// A kernel's text recorded under data/.
std::string recorded(const std::string& name);

// Lets `collector` take a sample of each text in turn.
void sampleEach(Torv::OS::Diagnostics::SystemStateCollector& collector, Source& source,
                std::initializer_list<std::string_view> texts);

// The "v" of each sample of the collector's only history, newest first. Fails the test where its name is not
// `name`.
std::vector<Json::Value> valuesOf(Torv::OS::Diagnostics::SystemStateCollector& collector,
                                  const std::string& name);

// JSON text as a value; null where it does not parse.
Json::Value json(const std::string& text);

}  // namespace test
