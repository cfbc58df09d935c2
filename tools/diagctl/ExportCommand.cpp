#include <memory>
#include <string>

#include "Calls.h"
#include "Commands.h"
#include "Output.h"
#include "timeline/Trace.h"

namespace diagctl {
namespace {

using android::base::Error;

// A live answer gives a trace too: its histories reach back a minute.
Result<void> exportTrace(const std::string& from, const std::string& to) {
  const auto timeline = timelineFrom(from);
  if (!timeline.ok()) return Error() << timeline.error();
  return writeFile(to, timeline::toTrace(*timeline));
}

}  // namespace

// There is no choice of a process or a time: viewers of traces find and zoom better than options could.
void addExportCommand(CLI::App& app, const Options& options, int& exitCode) {
  struct Arguments {
    std::string from;
    std::string to;
  };
  const auto arguments = std::make_shared<Arguments>();
  CLI::App* command = app.add_subcommand("export", "Write what happened as a trace for trace viewers");
  command->add_option("--from", arguments->from,
                      "A recording or a crash report; without it, the service is asked");
  command->add_option("-o,--output", arguments->to, "The file to write (.pftrace)")->required();
  command->callback([arguments, &options, &exitCode] {
    const auto work = [arguments] { return exportTrace(arguments->from, arguments->to); };
    // The time-out is for calls into the service. A large file may take longer.
    exitCode = arguments->from.empty() ? within(options.timeoutSeconds, work) : exitCodeOf(work());
  });
}

}  // namespace diagctl
