#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace diagctl {

// A history of the system's state for a terminal: a line for each metric of `report`, the JSON text that the
// service gives, with a small bar for each sample (oldest left; from the lowest value to the highest; blank
// where a sample does not have the metric), and its newest, lowest and highest value:
//
//   full_avg10  ▁▁ ▃█▆  newest 1.2  lowest 0  highest 1.53
//
// Each line ends in a newline. Empty where `report` is no such text.
std::optional<std::string> historyChart(std::string_view report);

}  // namespace diagctl
