// Client library of statsd: fetching what has been kept.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include <statsd/Atom.h>

namespace libstatsd {

// One atom, and when it was written.
struct AtomReport {
  int64_t elapsedTimestampNs = 0;  // CLOCK_BOOTTIME, as the writer stamped it
  android::os::statsd::Atom atom;
};

using Report = std::vector<AtomReport>;

// Why nothing could be fetched, in one sentence.
struct Error {
  std::string message;
};

// Fetches the reports of the configurations added to it. fetchReportsBlocked() may be called from several
// threads at once: every atom is handed to exactly one of them.
class StatsdCollection {
 public:
  // Adds a configuration by the key that it is published under. It need not be published yet.
  void addConfiguration(int32_t configId, int32_t uid);

  // Removes and returns the atoms that were sent before the call: a report for each configuration that has
  // any, its atoms in the order in which they arrived. Returns an Error if this process has published no
  // configuration in the current runtime directory. Never waits for a sender.
  [[nodiscard]] std::variant<std::vector<Report>, Error> fetchReportsBlocked();

 private:
  std::vector<std::pair<int32_t, int32_t>> mConfigurations;  // (config id, uid)
};

}  // namespace libstatsd
