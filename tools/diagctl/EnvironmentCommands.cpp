// diagctl doctor and diagctl runtime-dir: what the service and diagctl work with, and what is wrong with it.
#include <cerrno>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include <runtime/RuntimeDirectory.h>
#include <statsd/StatsdStatus.h>

#include "Calls.h"
#include "Commands.h"
#include "HistoryChart.h"
#include "Output.h"
#include "configuration/ConfigurationChain.h"
#include "os/DevicePath.h"

namespace diagctl {
namespace {

using libstatsd::StatsdCounters;
using libstatsd::StatsdStatus;

// A source of a history, and why a machine may lack it.
// The paths are the device's: the device root is put in front when they are printed.
struct Source {
  const char* history;
  const char* path;  // on a device
  const char* advice;
};

constexpr char kNoPressure[] =
    "this kernel gives no pressure figures; they take CONFIG_PSI and, on some, psi=1 at boot";
constexpr Source kSources[] = {
    {"psi_cpu_history", "/proc/pressure/cpu", kNoPressure},
    {"psi_memory_history", "/proc/pressure/memory", kNoPressure},
    {"psi_io_history", "/proc/pressure/io", kNoPressure},
    {"cpu_utilization_history", "/proc/stat", "procfs is not mounted in the device root"},
    {"system_meminfo_history", "/proc/meminfo", "procfs is not mounted in the device root"},
    {"gpu_utilization_history", "/sys/class/kgsl/kgsl-3d0/gpubusy_accum", "this machine has no such GPU"},
    {"battery_state_history", "/sys/class/power_supply/battery/charge_counter",
     "this machine has no battery"},
};

// A reason for which publishers' atoms are lost, and what to do about it.
struct Loss {
  uint64_t StatsdCounters::*counter;
  const char* text;
};

constexpr Loss kLosses[] = {
    {&StatsdCounters::droppedMalformed,
     "malformed; publish through StatsEventWriter or the platform's own writer"},
    {&StatsdCounters::droppedTooLong, "longer than any event; an event holds at most 4064 bytes"},
    {&StatsdCounters::droppedErrors, "given up by their writers as too large; shorten the texts"},
    {&StatsdCounters::droppedSender, "of uids that are not heard; diagctl status says whose are"},
    {&StatsdCounters::droppedUnwanted, "that nobody collects; the service takes atoms 110010 and 111983"},
    {&StatsdCounters::droppedFull, "pushed out by newer ones, because nobody asked for too long"},
    {&StatsdCounters::lostBySenders,
     "that their senders could not send, because the service's queue was full"},
};

// Prints findings as they are made, so that a call that does not return takes none of them along.
// With JSON the findings are printed at the end, because a document is one text.
class Findings {
 public:
  explicit Findings(bool json) : mJson(json) {}

  void good(const std::string& text) { add("ok", text); }
  // Something is missing, but all that is there works.
  void note(const std::string& text) { add("note", text); }
  void fault(const std::string& text) {
    add("FAULT", text);
    ++mFaults;
  }

  // An error if there were faults.
  Result<void> finish() {
    if (mJson) printJson(mDocument);
    if (mFaults == 0) return {};
    return android::base::Error() << mFaults << (mFaults == 1 ? " fault was" : " faults were") << " found.";
  }

 private:
  void add(const char* kind, const std::string& text) {
    if (!mJson) {
      printf("%-6s %s\n", kind, printable(text).c_str());
      fflush(stdout);
      return;
    }
    Json::Value finding(Json::objectValue);
    finding["kind"] = kind;
    finding["text"] = text;
    mDocument.append(finding);
  }

  const bool mJson;
  int mFaults = 0;
  Json::Value mDocument{Json::arrayValue};
};

// The service ends at its start without this file, so it comes first.
void checkConfiguration(Findings& findings) {
  const std::string path = Torv::OS::devicePath(Torv::kServiceConfigurationPath);
  const auto configuration = Torv::readServiceConfiguration();
  if (configuration.ok()) {
    findings.good("the configuration file is " + path);
  } else {
    findings.fault("the configuration file " + path + " cannot be used: " + configuration.error().message() +
                   "; put a JSON object there, or name another device root in TORV_DEVICE_ROOT");
  }
}

// Losses lie in the past: they are notes, because the service does what it should.
void checkLosses(const StatsdCounters& counters, Findings& findings) {
  bool none = true;
  for (const Loss& loss : kLosses) {
    if (const uint64_t count = counters.*loss.counter; count > 0) {
      findings.note(std::to_string(count) + " atoms were lost: " + loss.text);
      none = false;
    }
  }
  if (none) findings.good("no atom was lost");
}

// Who publishes in vain does not learn it: a datagram has no answer.
void checkUids(const StatsdStatus& status, Findings& findings) {
  const std::string uid = std::to_string(status.askerUid);
  // Not to be heard is no fault: a crash reporter asks and never publishes.
  if (status.askerHeard) {
    findings.good("your uid " + uid + " is heard");
  } else {
    findings.note("your uid " + uid + " is not heard, only " + status.allowedSources + " (AID_APP is uids " +
                  status.applicationUids + "); TORV_APP_UIDS of the service changes that");
  }
  for (const libstatsd::UidCounters& counters : status.uids) {
    if (counters.notHeard == 0) continue;
    findings.note("uid " + std::to_string(counters.uid) +
                  " publishes and is not heard: " + std::to_string(counters.notHeard) + " atoms so far");
  }
}

// Returns true if the service can be asked further.
// Without an answer here the binder calls would only wait, so the caller leaves them out.
bool checkStatsd(const Options& options, Findings& findings) {
  const std::string directory = platform::runtimeDirectory();
  const auto status = statusWithin(options.timeoutSeconds);
  if (!status.ok()) {
    findings.fault(status.error().code() == EAGAIN
                       ? "the service in " + directory + " does not answer; is it stopped?"
                       : "no service is reachable in " + directory +
                             "; start one with ./run serve, or name its directory in TORV_RUNTIME_DIR");
    return false;
  }
  findings.good("the service answers in " + directory + ", pid " + std::to_string(status->servicePid) +
                ", uid " + std::to_string(status->serviceUid));
  checkUids(*status, findings);
  checkLosses(status->counters, findings);
  return true;
}

// A kernel without the `full` line for a resource has only the shares of `some`.
bool lacksFull(const timeline::Timeline& timeline, const std::string& source) {
  bool any = false;
  for (const timeline::Series& series : timeline.series) {
    if (series.source != source) continue;
    if (series.metric.starts_with("full_")) return false;
    any = true;
  }
  return any;
}

// The flag switches all histories on or off. With it on, each source that the machine has gives one.
void checkHistories(const timeline::Answer& answer, Findings& findings) {
  const timeline::Timeline timeline = timeline::fromAnswer(answer);
  // A history is present as soon as its source could be opened, even if it has no sample yet.
  size_t present = 0;
  for (const Source& source : kSources) present += answer.context.contains(source.history);
  if (present == 0) {
    findings.note(kHistoriesOff);
    return;
  }
  findings.good("histories are on, " + std::to_string(present) + " of " +
                std::to_string(std::size(kSources)));
  for (const Source& source : kSources) {
    if (!answer.context.contains(source.history)) {
      findings.note(std::string("no ") + source.history + ": " + Torv::OS::devicePath(source.path) +
                    " could not be opened; " + source.advice);
    } else if (std::string(source.history).starts_with("psi_") && lacksFull(timeline, source.history)) {
      findings.note(std::string(source.history) + " has no full_ figures: this kernel's " + source.path +
                    " has no line for them");
    }
  }
}

// In the order in which one thing needs the other: without a configuration there is no service.
// Runs on the thread of within(), so a finding is printed even if the next check never returns.
Result<void> examine(const Options& options) {
  Findings findings(options.json);
  checkConfiguration(findings);
  if (checkStatsd(options, findings)) {
    const auto answer = askService(true);
    if (answer.ok()) {
      findings.good("its binder services answer; " + std::to_string(answer->processes.size()) +
                    " processes have published");
      checkHistories(*answer, findings);
    } else {
      findings.fault(answer.error().message());
    }
  }
  return findings.finish();
}

}  // namespace

// runtime-dir asks nobody: scripts use it to find the directory before a service runs.
void addEnvironmentCommands(CLI::App& app, const Options& options, int& exitCode) {
  CLI::App* doctor = app.add_subcommand("doctor", "Say what is missing, and what to do about it");
  doctor->callback([&options, &exitCode] {
    // The status and the calls have the time each; whoever stops the service in between waits for both.
    exitCode = within(2 * options.timeoutSeconds, [&options] { return examine(options); });
  });

  CLI::App* runtimeDirectory =
      app.add_subcommand("runtime-dir", "Print the directory in which service and clients meet");
  runtimeDirectory->callback([&options, &exitCode] {
    options.json ? printJson(platform::runtimeDirectory())
                 : static_cast<void>(puts(platform::runtimeDirectory().c_str()));
    exitCode = kDone;
  });
}

}  // namespace diagctl
