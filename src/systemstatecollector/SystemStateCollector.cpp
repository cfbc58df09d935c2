#include "systemstatecollector/SystemStateCollector.h"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <utility>

#include <android/log.h>
#include <json/writer.h>

#include "base/Clock.h"

namespace Torv::OS::Diagnostics {
namespace {

const Json::StaticString kVersion("version");
const Json::StaticString kVersionValue("1.0");
const Json::StaticString kReportTimeMs("report_time_ms");
const Json::StaticString kTimeSeries("time_series");
const Json::StaticString kDtMs("dt_ms");
const Json::StaticString kValue("v");

const Json::StreamWriterBuilder& reportWriter() {
  static const Json::StreamWriterBuilder writer = [] {
    Json::StreamWriterBuilder builder;
    builder["precision"] = 2;
    builder["precisionType"] = "decimal";
    return builder;
  }();
  return writer;
}

}  // namespace

uint64_t SystemStateCollector::Utils::monotonicMilliseconds() {
  timespec time{};
  if (clock_gettime(CLOCK_MONOTONIC, &time) != 0) {
    __android_log_print(ANDROID_LOG_ERROR, nullptr, "error getting time: %s", strerror(errno));
    return 0;
  }
  return Base::toReportMilliseconds(time);
}

Json::Value SystemStateCollector::Utils::makeJsonReport(uint64_t nowMs) {
  Json::Value report(Json::objectValue);
  report[kVersion] = kVersionValue;
  report[kReportTimeMs] = Json::Value::UInt64{nowMs};
  report[kTimeSeries] = Json::Value(Json::arrayValue);
  return report;
}

void SystemStateCollector::Utils::addTimeSeriesDataToJsonReport(Json::Value& report, uint64_t dtMs,
                                                                Json::Value value) {
  Json::Value entry(Json::objectValue);
  entry[kDtMs] = Json::Value::UInt64{dtMs};
  entry[kValue] = std::move(value);
  report[kTimeSeries].append(std::move(entry));
}

void SystemStateCollector::Utils::reverseTimeSeries(Json::Value& report) {
  Json::Value& series = report[kTimeSeries];
  for (Json::ArrayIndex first = 0, end = series.size(); first + 1 < end; ++first, --end) {
    series[first].swap(series[end - 1]);
  }
}

std::unique_ptr<SystemStateCollector::History> SystemStateCollector::Utils::makeHistory(
    const char* historyName, const Json::Value& report) {
  auto history = std::make_unique<History>();
  history->emplace(historyName, Json::writeString(reportWriter(), report));
  return history;
}

}  // namespace Torv::OS::Diagnostics
