#include "Source.h"

#include <sstream>

#include <json/reader.h>
#include <json/writer.h>

namespace test {

Json::Value json(const std::string& text) {
  Json::Value value;
  std::istringstream(text) >> value;
  return value;
}

Strings metrics(Torv::OS::Diagnostics::SystemStateCollector& collector) {
  Json::StreamWriterBuilder writer;
  writer["indentation"] = "";
  writer["precision"] = 15;
  Strings lines;
  const Json::Value report = json(collector.dumpSystemStateHistory()->begin()->second);
  for (const Json::Value& entry : report["time_series"])
    lines.push_back(Json::writeString(writer, entry["v"]));
  return lines;
}

}  // namespace test
