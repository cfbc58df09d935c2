#include "Commands.h"

int main(int argc, char** argv) {
  CLI::App app("Talks to the diagnostics collector service and to the host platform under it.", "diagctl");
  app.require_subcommand(1);
  int exitCode = diagctl::kDone;

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? diagctl::kDone : diagctl::kWrongUsage;
  }
  return exitCode;
}
