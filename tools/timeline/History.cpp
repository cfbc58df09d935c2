#include "History.h"

#include <algorithm>
#include <string_view>

#include <json/value.h>

#include "Json.h"
#include "base/Json.h"

namespace timeline {
namespace {

constexpr std::string_view kTotalSuffix = "_total";
constexpr std::string_view kShareSuffix = "_stalled_%";
constexpr double kMissedSamples = 2.5;  // a step of more periods than this has lost samples

// Totals count microseconds since boot, so their curve says nothing to people: it only ever rises.
bool isTotal(std::string_view metric) {
  return metric.ends_with(kTotalSuffix);
}

std::string shareName(std::string_view metric) {
  return std::string(metric.substr(0, metric.size() - kTotalSuffix.size())).append(kShareSuffix);
}

// The names of the metrics carry the unit. The kernel's averages of pressure are per cent without saying so.
Unit unitOf(std::string_view metric) {
  if (metric.ends_with("%") || metric.find("_avg") != std::string_view::npos) return Unit::Percent;
  return metric.ends_with("_KB") ? Unit::Kibibytes : Unit::None;
}

// Returns nullopt if the member is no time: sums and differences of times stay in range.
std::optional<int64_t> timeIn(const Json::Value& object, const char* name) {
  const Json::Value* const value = Torv::Base::findMember(object, name);
  if (value == nullptr || !isTime(*value)) return std::nullopt;
  return value->asInt64();
}

// The metrics of a sample that have a number. Empty if the service could not read the source then.
std::map<std::string, double> numbers(const Json::Value& sample) {
  std::map<std::string, double> values;
  const Json::Value* const members = Torv::Base::findMember(sample, "v");
  if (members == nullptr || !members->isObject()) return values;
  for (auto value = members->begin(); value != members->end(); ++value) {
    if (value->isNumeric()) values[value.name()] = value->asDouble();
  }
  return values;
}

// The usual time between two samples: the median of the steps. 0 if there are fewer than two samples.
int64_t periodOf(const History& history) {
  std::vector<int64_t> steps;
  for (size_t i = 1; i < history.samples.size(); ++i) {
    steps.push_back(history.samples[i].monotonicMs - history.samples[i - 1].monotonicMs);
  }
  if (steps.empty()) return 0;
  const auto middle = steps.begin() + static_cast<std::ptrdiff_t>(steps.size() / 2);
  std::nth_element(steps.begin(), middle, steps.end());
  return *middle;
}

}  // namespace

// Other values of the context are not parsed as JSON: the search for a member that every history has is
// cheaper.
std::optional<History> parseHistory(const std::string& text) {
  if (text.find("time_series") == std::string::npos) return std::nullopt;
  const auto report = Torv::Base::parseJson(text);
  if (!report.ok()) return std::nullopt;
  const std::optional<int64_t> reportMs = timeIn(*report, "report_time_ms");
  const Json::Value* const samples = Torv::Base::findMember(*report, "time_series");
  if (!reportMs || samples == nullptr || !samples->isArray()) return std::nullopt;

  History history;
  for (const Json::Value& sample : *samples) {
    const std::optional<int64_t> ageMs = timeIn(sample, "dt_ms");
    if (!ageMs || *ageMs > *reportMs) continue;
    history.samples.push_back({*reportMs - *ageMs, numbers(sample)});
  }
  std::stable_sort(history.samples.begin(), history.samples.end(),
                   [](const auto& a, const auto& b) { return a.monotonicMs < b.monotonicMs; });
  return history;
}

// The value is a publisher's text. It stays as it is, even if it is JSON itself.
std::optional<AgedText> parseAged(const std::string& text) {
  const auto aged = Torv::Base::parseJson(text);
  if (!aged.ok()) return std::nullopt;
  const std::optional<int64_t> ageMs = timeIn(*aged, "dt_ms");
  const Json::Value* const value = Torv::Base::findMember(*aged, "v");
  if (!ageMs || value == nullptr || !value->isString()) return std::nullopt;
  return AgedText{*ageMs, value->asString()};
}

// Samples are told apart by their monotonic time, which is the same in every report. Their boot time is not:
// two readings of the clocks may differ by a millisecond, and by a suspend in between.
std::vector<Sample> HistoryReader::newSamples(const History& history, const Clocks& clocks) {
  const int64_t suspendedMs = clocks.bootMs - clocks.monotonicMs;
  // A service that has just started has one sample, from which no period can be told: the one before holds.
  if (const int64_t periodMs = periodOf(history); periodMs > 0) mPeriodMs = periodMs;
  std::vector<Sample> samples;
  for (const History::Sample& sample : history.samples) {
    if (mLastMs && sample.monotonicMs <= *mLastMs) continue;
    if (mLastMs && mPeriodMs > 0 &&
        static_cast<double>(sample.monotonicMs - *mLastMs) >
            kMissedSamples * static_cast<double>(mPeriodMs)) {
      addSample({*mLastMs + mPeriodMs, {}}, *mLastMs + mPeriodMs + suspendedMs, samples);
    }
    addSample(sample, sample.monotonicMs + suspendedMs, samples);
  }
  return samples;
}

// A metric that the sample lacks has a gap there. The share of time stalled needs the total of the sample
// before.
void HistoryReader::addSample(const History::Sample& sample, int64_t bootMs, std::vector<Sample>& samples) {
  std::map<std::string, double> values;
  std::map<std::string, double> totals;
  for (const auto& [metric, value] : sample.values) {
    if (!isTotal(metric)) {
      values[metric] = value;
      mMetrics.emplace(metric, unitOf(metric));
      continue;
    }
    const std::string share = shareName(metric);
    mMetrics.emplace(share, Unit::Percent);
    totals[metric] = value;
    const auto last = mLastTotals.find(metric);
    if (!mLastMs || last == mLastTotals.end() || value < last->second) continue;
    const double elapsedUs = static_cast<double>(sample.monotonicMs - *mLastMs) * 1000;
    values[share] = std::min(100.0, (value - last->second) / elapsedUs * 100);
  }
  for (const auto& [metric, unit] : mMetrics) {
    const auto value = values.find(metric);
    samples.push_back(
        {bootMs, metric, unit, value == values.end() ? std::nullopt : std::optional(value->second)});
  }
  mLastMs = sample.monotonicMs;
  mLastTotals = std::move(totals);
}

}  // namespace timeline
