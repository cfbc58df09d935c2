// diagctl's commands, a group a file. Each function adds its subcommands to the application; a subcommand's
// callback leaves its outcome in `exitCode`.
#pragma once

#include <CLI/CLI.hpp>

namespace diagctl {

constexpr int kDone = 0;
constexpr int kRefused = 1;  // refused, not found, not answered; stderr says what to do
constexpr int kWrongUsage = 2;

// What holds for every command.
struct Options {
  bool json = false;  // print one JSON document instead of text for people
  double timeoutSeconds = 5;
};

// push, push-session, status: what an application does, and what becomes of it.
void addAtomCommands(CLI::App& app, const Options& options, int& exitCode);

// prop get, prop set, prop unset, prop list.
void addPropertyCommands(CLI::App& app, const Options& options, int& exitCode);

// pref get, pref set, pref unset, pref list.
void addPreferenceCommands(CLI::App& app, const Options& options, int& exitCode);

// config: every setting and the layer that answers for it.
void addConfigCommand(CLI::App& app, const Options& options, int& exitCode);

// state, states, notify, ping: through the service's binder interfaces.
void addServiceCommands(CLI::App& app, const Options& options, int& exitCode);

// context: the system's state, with charts.
void addContextCommand(CLI::App& app, const Options& options, int& exitCode);

// record: what changes, into a file.
void addRecordCommand(CLI::App& app, const Options& options, int& exitCode);

// export: a trace of an answer, a crash report or a recording.
void addExportCommand(CLI::App& app, const Options& options, int& exitCode);

// report: a page about a process, for a browser.
void addReportCommand(CLI::App& app, const Options& options, int& exitCode);

// top: a live view on the terminal.
void addTopCommand(CLI::App& app, const Options& options, int& exitCode);

// doctor, runtime-dir: what the service and diagctl work with.
void addEnvironmentCommands(CLI::App& app, const Options& options, int& exitCode);

}  // namespace diagctl
