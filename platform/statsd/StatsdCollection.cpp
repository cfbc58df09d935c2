#include "statsd/StatsdCollection.h"

#include <iterator>
#include <optional>

#include "ProcessStatsd.h"
#include "ReportDecoder.h"
#include "runtime/RuntimeDirectory.h"

namespace libstatsd {

void StatsdCollection::addConfiguration(int32_t configId, int32_t uid) {
  mConfigurations.emplace_back(configId, uid);
}

std::variant<std::vector<Report>, Error> StatsdCollection::fetchReportsBlocked() {
  const std::string directory = platform::runtimeDirectory();
  Statsd* statsd = runningStatsdOf(directory);
  if (statsd == nullptr) return Error{"no configuration has been published in " + directory};
  std::vector<Report> all;
  for (const auto& [configId, uid] : mConfigurations) {
    std::optional<std::vector<Report>> reports = decodeReportList(statsd->fetch({uid, configId}));
    if (!reports) return Error{"the reports of configuration " + std::to_string(configId) + " do not decode"};
    all.insert(all.end(), std::move_iterator(reports->begin()), std::move_iterator(reports->end()));
  }
  return all;
}

}  // namespace libstatsd
