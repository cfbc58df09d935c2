#include "statsd/StatsdCollection.h"

#include "Statsd.h"
#include "runtime/RuntimeDirectory.h"

namespace libstatsd {
namespace {

Report reportOf(std::vector<AtomRecord> atoms) {
  Report report;
  report.reserve(atoms.size());
  for (AtomRecord& atom : atoms) {
    AtomReport& entry = report.emplace_back();
    entry.elapsedTimestampNs = atom.elapsedTimestampNs;
    // As on a device, the atom of an event without fields is empty.
    if (atom.payload.empty()) continue;
    entry.atom.mutable_unknown_fields()->AddLengthDelimited(atom.atomId, std::move(atom.payload));
  }
  return report;
}

}  // namespace

void StatsdCollection::addConfiguration(int32_t configId, int32_t uid) {
  mConfigurations.emplace_back(configId, uid);
}

std::variant<std::vector<Report>, Error> StatsdCollection::fetchReportsBlocked() {
  const std::string directory = platform::runtimeDirectory();
  Statsd* statsd = Statsd::runningIn(directory);
  if (statsd == nullptr) return Error{"no configuration has been published in " + directory};
  std::vector<Report> reports;
  for (const auto& [configId, uid] : mConfigurations) {
    std::vector<AtomRecord> atoms = statsd->fetch({uid, configId});
    if (!atoms.empty()) reports.push_back(reportOf(std::move(atoms)));
  }
  return reports;
}

}  // namespace libstatsd
