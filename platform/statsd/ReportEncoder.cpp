#include "ReportEncoder.h"

#include "ProtoAppend.h"

namespace libstatsd {
namespace {

// A configuration here has one metric.
constexpr int64_t kMetricId = 2;

// Field numbers of stats_log.proto.
namespace report_list {
constexpr int32_t kConfigKey = 1;
constexpr int32_t kReports = 2;
}  // namespace report_list
namespace config_key {
constexpr int32_t kUid = 1;
constexpr int32_t kId = 2;
}  // namespace config_key
namespace config_report {
constexpr int32_t kMetrics = 1;
constexpr int32_t kLastElapsedNs = 3;
constexpr int32_t kCurrentElapsedNs = 4;
constexpr int32_t kLastWallNs = 5;
constexpr int32_t kCurrentWallNs = 6;
constexpr int32_t kReason = 8;
constexpr int32_t kReasonGetDataCalled = 4;
}  // namespace config_report
namespace metric {
constexpr int32_t kId = 1;
constexpr int32_t kEventMetrics = 4;
constexpr int32_t kIsActive = 14;
}  // namespace metric

}  // namespace

std::string encodeEventMetric(const AtomStore& atoms) {
  constexpr size_t kRoomForTags = 32;
  std::string out;
  out.reserve(atoms.bytes() + kRoomForTags);
  appendInt64(out, metric::kId, kMetricId);
  appendInt32(out, metric::kIsActive, 1);
  if (atoms.count() == 0) return out;
  appendLength(out, metric::kEventMetrics, atoms.bytes());
  atoms.appendTo(out);
  return out;
}

std::string encodeReportList(ConfigKey key, const AtomStore& atoms, const ReportTimes& times) {
  std::string keyBytes;
  appendInt32(keyBytes, config_key::kUid, key.uid);
  appendInt64(keyBytes, config_key::kId, key.id);

  const std::string metricBytes = encodeEventMetric(atoms);
  std::string tail;
  appendInt64(tail, config_report::kLastElapsedNs, times.lastElapsedNs);
  appendInt64(tail, config_report::kCurrentElapsedNs, times.elapsedNs);
  appendInt64(tail, config_report::kLastWallNs, times.lastWallNs);
  appendInt64(tail, config_report::kCurrentWallNs, times.wallNs);
  appendInt32(tail, config_report::kReason, config_report::kReasonGetDataCalled);

  std::string out;
  constexpr size_t kRoomForTags = 64;
  out.reserve(metricBytes.size() + tail.size() + kRoomForTags);
  appendBytes(out, report_list::kConfigKey, keyBytes);
  appendLength(out, report_list::kReports,
               1 + varintBytes(metricBytes.size()) + metricBytes.size() + tail.size());
  appendBytes(out, config_report::kMetrics, metricBytes);
  out += tail;
  return out;
}

}  // namespace libstatsd
