#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "statsd/StatsdCollection.h"

namespace libstatsd {

// Takes a serialised ConfigMetricsReportList apart: one Report for each ConfigMetricsReport in it, the atoms
// of its event metrics in the order in which statsd wrote them. Both forms of an event are read: {timestamp,
// atom} and {one atom, its timestamps}. A report with the second form, or with several event metrics, has
// lost the order of arrival; its atoms are put in the order of their timestamps. Everything else in a report
// is skipped. Nothing where the bytes are no such message.
[[nodiscard]] std::optional<std::vector<Report>> decodeReportList(std::string_view bytes);

}  // namespace libstatsd
