#include "Source.h"

#include <memory>

#include <gtest/gtest.h>
#include <json/reader.h>

namespace test {

Source::Source(std::string_view text) : mPath(mDirectory.write("source", text)) {}

void Source::set(std::string_view text) {
  mDirectory.write("source", text);
}

std::ifstream Source::open() const {
  return std::ifstream(mPath);
}

std::string recorded(const std::string& name) {
  return readFile(DIAG_TEST_DATA "/" + name);
}

void sampleEach(Torv::OS::Diagnostics::SystemStateCollector& collector, Source& source,
                std::initializer_list<std::string_view> texts) {
  for (const std::string_view text : texts) {
    source.set(text);
    EXPECT_TRUE(collector.collectSystemStateData());
  }
}

std::vector<Json::Value> valuesOf(Torv::OS::Diagnostics::SystemStateCollector& collector,
                                  const std::string& name) {
  const auto history = collector.dumpSystemStateHistory();
  EXPECT_EQ(history->size(), 1U);
  EXPECT_EQ(history->count(name), 1U);
  std::vector<Json::Value> values;
  const Json::Value report = json((*history)[name]);
  for (const Json::Value& entry : report["time_series"]) values.push_back(entry["v"]);
  return values;
}

Json::Value json(const std::string& text) {
  Json::Value value;
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  if (!reader->parse(text.data(), text.data() + text.size(), &value, nullptr)) return Json::nullValue;
  return value;
}

}  // namespace test
