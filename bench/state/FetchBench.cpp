// A fetch of 10,000 atoms from the report into the black box, against decoding the same atoms into plain
// maps.
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>

#include "AtomDecoder.h"
#include "Baseline.h"
#include "state/ApplicationStateManager.h"
#include "support/Compare.h"
#include "vendor/velmor/packages/services/StatsCollector/src/pelluxatoms.pb.h"

namespace {

using namespace Torv::OS::Diagnostics;
using vendor::pellux::hardware::PelluxAtoms::ApplicationStateData;

class GivenReports : public LibstatsdWrapper {
 public:
  explicit GivenReports(std::vector<libstatsd::Report> reports) : mReports(std::move(reports)) {}
  std::variant<std::vector<ApplicationState>, libstatsd::Error> fetchReports() override {
    return decodeReports(std::move(mReports));
  }

 private:
  std::vector<libstatsd::Report> mReports;
};

void fetch(benchmark::State& state) {
  std::vector<std::string> payloads;
  std::vector<int64_t> timestamps;
  std::vector<libstatsd::Report> reports(1);
  for (const bench::Update& update : bench::updates(500, 1, 1)) {
    ApplicationStateData data;
    data.set_pid(update.pid);
    data.set_key(*update.key);
    data.set_value(update.value);
    payloads.push_back(data.SerializeAsString());
    timestamps.push_back(update.timestamp);
    reports[0].push_back({update.timestamp, {}});
    reports[0].back().atom.mutable_unknown_fields()->AddLengthDelimited(kApplicationStateAtomId,
                                                                        payloads.back());
  }
  // Decoding consumes a report, so each iteration gets its own, made before the clock starts.
  std::vector<std::unique_ptr<StatsManager>> feeds;
  for (benchmark::IterationCount i = 0; i < state.max_iterations; i++) {
    feeds.push_back(std::make_unique<StatsManager>(std::make_unique<GivenReports>(reports)));
  }
  bench::compare(
      state, 1.3,
      [&] {
        ApplicationStateManager manager(std::make_unique<BlackBox>(), std::move(feeds.back()), 60);
        feeds.pop_back();
        manager.updateApplicationStateManager();
      },
      [&] {
        bench::Baseline baseline;
        ApplicationStateData data;
        for (size_t i = 0; i < payloads.size(); i++) {
          google::protobuf::io::ArrayInputStream bytes(payloads[i].data(),
                                                       static_cast<int>(payloads[i].size()));
          google::protobuf::io::CodedInputStream stream(&bytes);
          if (!data.ParseFromCodedStream(&stream)) abort();
          baseline.add(data.pid(), data.key(), timestamps[i], data.value());
        }
      });
  state.counters["ns_per_atom"] = state.counters["median_ns"] / static_cast<double>(payloads.size());
}

}  // namespace

void registerFetchBenchmarks() {
  bench::registerComparison("fetch/10000 atoms", 15, &fetch);
}
