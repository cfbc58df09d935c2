#include <cstdio>

#include "Calls.h"
#include "Commands.h"
#include "HistoryChart.h"
#include "Output.h"
#include "dev/kerno/internal/diagnostics/BundleKeys.h"
#include "timeline/Sources.h"

namespace diagctl {
namespace {

using android::base::Error;

// A history without samples yet is no series, but it shows that the flag is on.
bool hasHistories(const timeline::Texts& context) {
  return std::any_of(context.begin(), context.end(),
                     [](const auto& value) { return value.first.ends_with("_history"); });
}

// The plain values as a table, the histories as charts, then the global states.
void printContext(const timeline::Answer& answer) {
  const timeline::Timeline timeline = timeline::fromAnswer(answer);
  const size_t columns = terminalColumns();
  // Keys and values can be longer than the terminal is wide; they go on below, so that nothing is lost.
  Rows values;
  for (const auto& [key, value] : timeline.context) values.emplace_back(printable(key), printable(value));
  printf("system context\n%s", folded(table(values, 2), 4).c_str());
  if (!hasHistories(answer.context)) {
    printf("\n%s", folded(std::string(kHistoriesOff) + '\n', 2).c_str());
  } else if (timeline.series.empty()) {
    puts("\nThe histories hold no samples yet.");
  } else {
    fputs(historyCharts(timeline, columns, glyphs()).c_str(), stdout);
  }
  // The values are the service's own JSON texts, with the age of each state.
  for (const auto& [nameSpace, states] : answer.globals) {
    Rows rows;
    for (const auto& [key, value] : states) rows.emplace_back(printable(key), printable(value));
    printf("\nglobal states, namespace %s\n%s", printable(nameSpace).c_str(),
           folded(table(rows, 2), 4).c_str());
  }
}

// Programs get the bundle as the service sent it, people a drawing.
// The drawing needs the clocks of an answer, so it asks for the processes as well.
Result<void> context(const Options& options) {
  if (!options.json) {
    const auto answer = askService(true);
    if (!answer.ok()) return Error() << answer.error();
    printContext(*answer);
    return {};
  }
  const auto reply = answerTo(askSystem);
  if (!reply.ok()) return Error() << reply.error();
  printJson(toJson(*reply));
  return {};
}

}  // namespace

// The calls run in within(), because a call into a service that is stopped does not return.
void addContextCommand(CLI::App& app, const Options& options, int& exitCode) {
  CLI::App* command = app.add_subcommand("context", "The system: build, test run, histories, global states");
  command->callback([&options, &exitCode] {
    exitCode = within(options.timeoutSeconds, [&options] { return context(options); });
  });
}

}  // namespace diagctl
