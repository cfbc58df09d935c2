#include <limits>
#include <memory>
#include <string>

#include "Calls.h"
#include "Commands.h"
#include "Output.h"
#include "report/Page.h"

namespace diagctl {
namespace {

using android::base::Error;

// What the command line says. The parser writes into it, so it lives as long as the command.
struct Arguments {
  std::string from;
  std::string crashReport;  // empty: none was given
  std::string to;
  int32_t pid = 0;  // 0: none was given
  int64_t lastMs = report::Choice{}.lastMs;
};

// The page is made whole before the file is opened, so a refusal leaves an older page as it is. With a crash
// report the page is about the process in it, not about the last one that died in the recording.
Result<void> writeReport(const Arguments& arguments) {
  const auto timeline = arguments.crashReport.empty()
                            ? timelineFrom(arguments.from)
                            : timeline::fromFiles(arguments.from, arguments.crashReport);
  if (!timeline.ok()) return Error() << timeline.error();
  report::Choice choice;
  if (arguments.pid != 0) choice.pid = arguments.pid;
  if (!arguments.crashReport.empty()) choice.pid = timeline->document["pid"].asInt();
  choice.lastMs = arguments.lastMs;
  const auto page = report::page(*timeline, choice);
  if (!page.ok()) return Error() << page.error();
  return writeFile(arguments.to, *page);
}

}  // namespace

// Units are required for --last: a bare 10 could be seconds or minutes.
void addReportCommand(CLI::App& app, const Options& options, int& exitCode) {
  const std::map<std::string, int64_t> times = {{"s", 1000}, {"m", 60'000}, {"h", 3'600'000}};
  const auto arguments = std::make_shared<Arguments>();
  CLI::App* command =
      app.add_subcommand("report", "Write a page with charts about a process to open in a browser");
  CLI::Option* const pid =
      command->add_option("--pid", arguments->pid, "The process; without it, the one that died last")
          ->check(CLI::Range(1, std::numeric_limits<int32_t>::max()));
  // --report adds to a recording and names the process itself, hence needs() and excludes() below.
  CLI::Option* const from = command->add_option(
      "--from", arguments->from, "A recording or a crash report; without it, the service is asked");
  command
      ->add_option(
          "--report", arguments->crashReport,
          "The crash report of a process in the recording: adds the signal, the program and the build")
      ->needs(from)
      ->excludes(pid);
  command->add_option("--last", arguments->lastMs, "How much time before the end the page shows: 30s, 10m")
      ->transform(CLI::AsNumberWithUnit(times, CLI::AsNumberWithUnit::UNIT_REQUIRED))
      ->check(CLI::Range(int64_t{1000}, int64_t{31'536'000'000}))
      ->default_str("2m");
  command->add_option("-o,--output", arguments->to, "The file to write (.html)")->required();
  command->callback([arguments, &options, &exitCode] {
    const auto work = [arguments] { return writeReport(*arguments); };
    // The time-out is for calls into the service. A large file may take longer.
    exitCode = arguments->from.empty() ? within(options.timeoutSeconds, work) : exitCodeOf(work());
  });
}

}  // namespace diagctl
