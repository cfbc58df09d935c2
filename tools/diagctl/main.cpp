#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

#include <fcntl.h>
#include <unistd.h>

#include "Calls.h"
#include "Commands.h"
#include "Environment.h"

namespace {

// Without this the first file that is opened would take the place of a stream that the caller has closed, and
// output would go there. Writes to these stand-ins fail.
void holdClosedStreams() {
  for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(fd, F_GETFD) < 0) open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY);
  }
}

// Written so that no comparison with a NaN lets it pass.
std::string checkTimeout(const std::string& text) {
  constexpr double kShortest = 0.001;
  constexpr double kLongest = 86400;
  const double seconds = strtod(text.c_str(), nullptr);
  return seconds >= kShortest && seconds <= kLongest ? "" : text + " is not between 0.001 and 86400 seconds";
}

// Commands whose name is unknown are the most frequent mistake, and the one that the parser has no words for.
std::string whatIsWrong(const CLI::App& app, const CLI::ParseError& error) {
  const CLI::App* command = &app;
  std::string path;
  while (!command->get_subcommands().empty()) {
    command = command->get_subcommands().front();
    path += command->get_name() + ' ';
  }
  // A group is a command with commands below it, as pref and prop are.
  const bool isGroup = !command->get_subcommands([](const CLI::App*) { return true; }).empty();
  const auto rest = app.remaining(true);
  if (isGroup && !rest.empty()) return "there is no command '" + path + rest.front() + "'";
  if (isGroup) return path.empty() ? "a command is missing" : "a command is missing after '" + path + "'";
  return error.what();
}

// The parser runs the command's callback, so this catches what commands throw as well (the libraries'
// exceptions: no memory, a thread that cannot be made).
int parseAndRun(CLI::App& app, int argc, char** argv, const int& exitCode) {
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) return app.exit(error);  // --help, --version
    diagctl::refuse(whatIsWrong(app, error) + "; diagctl --help shows what there is.");
    return diagctl::kWrongUsage;
  } catch (const std::exception& error) {
    return diagctl::refuse(error.what());
  }
  return exitCode;
}

}  // namespace

// The environment is adopted before the first thread, because setenv(3) is not thread-safe. The locale is set
// for characters alone: numbers keep their point in every language.
int main(int argc, char** argv) {
  holdClosedStreams();
  setlocale(LC_CTYPE, "");
  diagctl::adoptServiceEnvironment();
  CLI::App app("Talks to the diagnostics collector service and to the host platform under it.", "diagctl");
  app.require_subcommand(1);
  app.fallthrough();
  app.set_version_flag("--version", "diagctl " DIAG_VERSION);
  diagctl::Options options;
  app.add_flag("--json", options.json, "Print one JSON document (docs/interfaces.md gives its shape)");
  app.add_option("--timeout", options.timeoutSeconds, "Seconds to wait for the service's answer")
      ->check(checkTimeout)
      ->capture_default_str();
  // The callbacks leave their outcome here. parse() runs the chosen one.
  int exitCode = diagctl::kDone;
  diagctl::addServiceCommands(app, options, exitCode);
  diagctl::addContextCommand(app, options, exitCode);
  diagctl::addRecordCommand(app, options, exitCode);
  diagctl::addExportCommand(app, options, exitCode);
  diagctl::addReportCommand(app, options, exitCode);
  diagctl::addTopCommand(app, options, exitCode);
  diagctl::addEnvironmentCommands(app, options, exitCode);
  diagctl::addAtomCommands(app, options, exitCode);
  diagctl::addPropertyCommands(app, options, exitCode);
  diagctl::addPreferenceCommands(app, options, exitCode);
  diagctl::addConfigCommand(app, options, exitCode);

  const int result = parseAndRun(app, argc, argv, exitCode);
  // A full disk or a closed stream: what was printed is lost, whatever the command has done.
  if (fflush(stdout) != 0 || ferror(stdout) != 0) return diagctl::refuse("the output could not be written.");
  return result;
}
