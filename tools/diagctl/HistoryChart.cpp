#include "HistoryChart.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>
#include <map>
#include <vector>

#include <fmt/format.h>
#include <json/value.h>

#include "Output.h"
#include "base/Json.h"

namespace diagctl {
namespace {

constexpr std::array<std::string_view, 8> kBars = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};

// A metric's value in each sample, oldest first; null where a sample has none.
using Series = std::vector<const Json::Value*>;

std::map<std::string, Series> seriesByMetric(const Json::Value& samples) {
  std::map<std::string, Series> metrics;
  for (Json::ArrayIndex age = 0; age < samples.size(); ++age) {
    const Json::Value* const values = Torv::Base::findMember(samples[age], "v");
    if (values == nullptr || !values->isObject()) continue;
    for (auto value = values->begin(); value != values->end(); ++value) {
      Series& series = metrics.try_emplace(value.name(), samples.size(), nullptr).first->second;
      if (value->isNumeric()) series[samples.size() - 1 - age] = &*value;
    }
  }
  return metrics;
}

std::string text(const Json::Value& number) {
  return number.type() == Json::realValue ? fmt::format("{}", number.asDouble()) : number.asString();
}

std::string_view bar(double value, double lowest, double highest) {
  if (highest == lowest) return kBars.front();
  // Halved first: the difference of two large values may be none.
  const double share = (value / 2 - lowest / 2) / (highest / 2 - lowest / 2);
  return kBars[static_cast<size_t>(std::lround(share * (kBars.size() - 1)))];
}

std::string line(const std::string& name, size_t nameWidth, const Series& series) {
  std::string result = fmt::format("{:<{}}  ", name, nameWidth);
  Series present;
  std::copy_if(series.begin(), series.end(), std::back_inserter(present), [](const auto* v) { return v; });
  if (present.empty()) return result + "no values\n";

  const auto [lowest, highest] = std::minmax_element(
      present.begin(), present.end(),
      [](const Json::Value* a, const Json::Value* b) { return a->asDouble() < b->asDouble(); });
  for (const Json::Value* const value : series) {
    result += value == nullptr ? " " : bar(value->asDouble(), (*lowest)->asDouble(), (*highest)->asDouble());
  }
  return result + fmt::format("  newest {}  lowest {}  highest {}\n", text(*present.back()), text(**lowest),
                              text(**highest));
}

}  // namespace

std::optional<std::string> historyChart(std::string_view report) {
  const auto json = Torv::Base::parseJson(report);
  if (!json.ok()) return std::nullopt;
  const Json::Value* const samples = Torv::Base::findMember(*json, "time_series");
  if (samples == nullptr || !samples->isArray()) return std::nullopt;
  if (samples->empty()) return "no samples\n";

  const auto metrics = seriesByMetric(*samples);
  size_t nameWidth = 0;
  for (const auto& [name, series] : metrics) nameWidth = std::max(nameWidth, printable(name).size());
  std::string chart;
  for (const auto& [name, series] : metrics) chart += line(printable(name), nameWidth, series);
  return chart;
}

}  // namespace diagctl
