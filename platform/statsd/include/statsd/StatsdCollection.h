// Client library of statsd: fetching what has been kept.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include <statsd/Atom.h>

namespace libstatsd {

struct AtomReport {
  int64_t elapsedTimestampNs = 0;  // CLOCK_BOOTTIME, as the writer stamped it
  android::os::statsd::Atom atom;
};

using Report = std::vector<AtomReport>;

struct Error {
  std::string message;
};

// Fetches the reports of the configurations added to it. fetchReportsBlocked() may be called from several
// threads at once: every atom is handed to exactly one of them.
class StatsdCollection {
 public:
  void addConfiguration(int32_t configId, int32_t uid);

  // All atoms kept since the last fetch, in the order in which they arrived; fetching clears them.
  [[nodiscard]] std::variant<std::vector<Report>, Error> fetchReportsBlocked();

 private:
  std::vector<std::pair<int32_t, int32_t>> mConfigurations;  // (config id, uid)
};

}  // namespace libstatsd
