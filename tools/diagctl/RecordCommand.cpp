// diagctl record: asks the service again and again and writes what changed.
#include <chrono>
#include <cstdio>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include <sys/utsname.h>
#include <unistd.h>

#include "Calls.h"
#include "Commands.h"
#include "Output.h"
#include "Watch.h"
#include "timeline/Recorder.h"

namespace diagctl {
namespace {

using std::chrono::milliseconds;
using SteadyClock = std::chrono::steady_clock;

// Times in milliseconds, sizes in bytes, as the parser makes them of "1s" and "64M".
struct Arguments {
  std::string path;
  int64_t everyMs = 1000;
  int64_t forMs = 0;  // 0: until a signal ends it
  uint64_t maxBytes = uint64_t{64} << 20;
};

// Without the host's name: recordings are handed on, and it may be a person's.
std::string machineName() {
  utsname name{};
  uname(&name);
  return std::string(name.sysname) + ' ' + name.release + ' ' + name.machine;
}

// One recording, from the first answer to the last.
// While the service is away a round is one look-up that fails, and writes nothing but the gap's one line.
class Recording {
 public:
  Recording(const Arguments& arguments, const Options& options, timeline::Recorder recorder)
      : mArguments(arguments),
        mPatience(std::chrono::ceil<milliseconds>(std::chrono::duration<double>(options.timeoutSeconds))),
        mRecorder(std::move(recorder)) {}

  // Returns an error if the file cannot be written. A service that is away is no error but a gap.
  Result<void> run() {
    const auto start = SteadyClock::now();
    auto next = start;
    while (true) {
      if (auto added = addAnswer(false); !added.ok()) return added;
      const milliseconds every(mArguments.everyMs);
      // A round that took longer than its time does not make the next ones come in a burst.
      next = std::max(next + every, SteadyClock::now() + every / 2);
      const bool ends = mArguments.forMs > 0 && next - start > milliseconds(mArguments.forMs);
      if (ends) next = start + milliseconds(mArguments.forMs);
      if (mSignals.waitUntil(next) || ends) break;
    }
    // With the last samples of the histories.
    return addAnswer(true);
  }

  bool isStuck() const { return mAsker.isStuck(); }

 private:
  // The dead are looked for before the service is asked: what they published last is then in the answer, and
  // nothing of them can come after their death.
  Result<void> addAnswer(bool withContext) {
    const int64_t nowMs = timeline::readClocks().bootMs;
    const std::set<int32_t> dead = deadOf(mLast);
    const auto answer = mAsker.ask(withContext || mRecorder.wantsContext(nowMs), mPatience);
    // A gap begins with the last answer and not now: nobody knows what happened in between.
    if (!answer) return mRecorder.addGap(mSeenMs.value_or(nowMs), "the service did not answer in time");
    if (!answer->ok()) return mRecorder.addGap(mSeenMs.value_or(nowMs), answer->error().message());
    const timeline::Answer& seen = **answer;
    if (auto added = mRecorder.add(seen, dead); !added.ok()) return added;
    mSeenMs = seen.clocks.bootMs;
    mLast = seen.processes;
    return mRecorder.addNames(seen.clocks.bootMs, mNames.newOf(mLast));
  }

  const Arguments mArguments;
  const milliseconds mPatience;
  EndSignals mSignals;
  Asker mAsker;
  timeline::Recorder mRecorder;
  std::optional<int64_t> mSeenMs;  // of the last answer
  std::map<int32_t, timeline::Texts> mLast;
  Names mNames;
};

// The file is made before the service is asked for the first time: a path that cannot be written is said at
// once, and a service that comes later is waited for.
int record(const Arguments& arguments, const Options& options) {
  auto recorder = timeline::Recorder::create(
      {arguments.path, arguments.everyMs, arguments.maxBytes, machineName()}, timeline::readClocks());
  if (!recorder.ok()) return refuse(recorder.error().message());
  Recording recording(arguments, options, *std::move(recorder));
  const int exitCode = exitCodeOf(recording.run());
  // What was recorded is on disk already: the recorder writes without a buffer.
  // The thread of a call that never returns would still use what the process's end destroys.
  if (recording.isStuck()) _exit(exitCode);
  return exitCode;
}

}  // namespace

// The shortest period is 100 ms, because each look makes the service write all states into a reply.
void addRecordCommand(CLI::App& app, const Options& options, int& exitCode) {
  const std::map<std::string, int64_t> times = {{"ms", 1}, {"s", 1000}, {"m", 60'000}, {"h", 3'600'000}};
  const std::map<std::string, uint64_t> sizes = {
      {"K", uint64_t{1} << 10}, {"M", uint64_t{1} << 20}, {"G", uint64_t{1} << 30}};
  const auto arguments = std::make_shared<Arguments>();
  CLI::App* command = app.add_subcommand("record", "Write what changes to a file until Ctrl-C");
  command->add_option("-o,--output", arguments->path, "The file to write (JSON lines)")->required();
  command->add_option("--every", arguments->everyMs, "The time between two looks: 500ms, 1s, 2m")
      ->transform(CLI::AsNumberWithUnit(times, CLI::AsNumberWithUnit::UNIT_REQUIRED))
      ->check(CLI::Range(int64_t{100}, int64_t{3'600'000}))
      ->default_str("1s");
  command->add_option("--for", arguments->forMs, "How long: 30s, 10m, 2h")
      ->transform(CLI::AsNumberWithUnit(times, CLI::AsNumberWithUnit::UNIT_REQUIRED))
      ->check(CLI::Range(int64_t{100}, int64_t{31'536'000'000}));
  command->add_option("--max-size", arguments->maxBytes, "From this size on the oldest minutes go: 64M")
      ->transform(CLI::AsNumberWithUnit(sizes, CLI::AsNumberWithUnit::UNIT_REQUIRED))
      ->check(CLI::Range(uint64_t{1} << 16, uint64_t{1} << 29))
      ->default_str("64M");
  command->callback([arguments, &options, &exitCode] { exitCode = record(*arguments, options); });
}

}  // namespace diagctl
