#include <cstdio>
#include <exception>

#include "Commands.h"

int main(int argc, char** argv) {
  CLI::App app("Talks to the diagnostics collector service and to the host platform under it.", "diagctl");
  app.require_subcommand(1);
  app.fallthrough();
  diagctl::Options options;
  app.add_flag("--json", options.json, "Print one JSON document (docs/interfaces.md gives its shape)");
  app.add_option("--timeout", options.timeoutSeconds, "Seconds to wait for the service's answer")
      ->check(CLI::Range(0.001, 86400.0))
      ->capture_default_str();
  int exitCode = diagctl::kDone;
  diagctl::addServiceCommands(app, options, exitCode);
  diagctl::addAtomCommands(app, options, exitCode);
  diagctl::addPropertyCommands(app, options, exitCode);
  diagctl::addPreferenceCommands(app, options, exitCode);
  diagctl::addConfigCommand(app, options, exitCode);

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? diagctl::kDone : diagctl::kWrongUsage;
  } catch (const std::exception& error) {
    fprintf(stderr, "diagctl: %s\n", error.what());
    return diagctl::kRefused;
  }
  return exitCode;
}
