#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <utility>

#include <fmt/format.h>

#include "Calls.h"
#include "Commands.h"
#include "HistoryChart.h"
#include "Output.h"
#include "dev/kerno/internal/diagnostics/BundleKeys.h"
#include "dev/kerno/internal/diagnostics/IDiagnosticsCollectorService.h"
#include "dev/kerno/internal/diagnostics/IDiagnosticsNotificationService.h"

namespace diagctl {
namespace {

using android::interface_cast;
using android::sp;
using android::String16;
using android::os::PersistableBundle;
namespace bundlekey = dev::kerno::internal::diagnostics::bundlekey;
using dev::kerno::internal::diagnostics::IDiagnosticsCollectorService;
using dev::kerno::internal::diagnostics::IDiagnosticsNotificationEventCode;
using dev::kerno::internal::diagnostics::IDiagnosticsNotificationService;

sp<IDiagnosticsCollectorService> collector() {
  return interface_cast<IDiagnosticsCollectorService>(
      serviceBinder(IDiagnosticsCollectorService::kServiceName));
}

void printProcess(const PersistableBundle& process) {
  int32_t pid = 0;
  process.getInt(String16(bundlekey::kProcessId), &pid);
  const Rows rows = stringRows(childOf(process, String16(bundlekey::kApplicationStateData)));
  printf("process %d\n%s", pid, table(rows, 2).c_str());
}

int state(int pid, const Options& options) {
  PersistableBundle process;
  requireOk(collector()->getApplicationStateDataForProcess(pid, String16("diagctl"), &process));
  if (process.empty()) {
    throw Refusal(
        fmt::format("Nothing is known of process {}: it has published no state, or it died more "
                    "than a minute ago. diagctl states lists the processes that are known.",
                    pid));
  }
  options.json ? printJson(toJson(process)) : printProcess(process);
  return kDone;
}

int states(const Options& options) {
  PersistableBundle all;
  requireOk(collector()->getAllAvailableApplicationStateData(&all));
  if (options.json) {
    printJson(toJson(all));
    return kDone;
  }
  // The keys are the decimal pids; people look for them in the order of the numbers.
  std::map<int64_t, String16> byPid;
  for (const String16& key : all.getPersistableBundleKeys())
    byPid[strtoll(toUtf8(key).c_str(), nullptr, 10)] = key;
  for (const auto& [pid, key] : byPid) printProcess(childOf(all, key));
  if (all.empty()) puts("No process has published a state.");
  return kDone;
}

void printGlobals(const PersistableBundle& globals) {
  for (const String16& name : globals.getPersistableBundleKeys()) {
    const Rows rows = stringRows(childOf(childOf(globals, name), String16(bundlekey::kGlobalStateData)));
    printf("\nglobal states, namespace %s\n%s", printable(toUtf8(name)).c_str(), table(rows, 2).c_str());
  }
}

std::string indented(const std::string& lines) {
  std::string result;
  for (size_t at = 0; at < lines.size();) {
    const size_t end = std::min(lines.find('\n', at), lines.size() - 1) + 1;
    result += "  " + lines.substr(at, end - at);
    at = end;
  }
  return result;
}

// The plain values as a table, then the histories as charts.
void printContext(const PersistableBundle& context) {
  Rows values;
  std::string charts;
  for (const String16& key : context.getStringKeys()) {
    const std::string value = stringOf(context, key);
    const std::string name = printable(toUtf8(key));
    if (const std::optional<std::string> chart = historyChart(value)) {
      charts += '\n' + name + '\n' + indented(*chart);
    } else {
      values.emplace_back(name, printable(value));
    }
  }
  printf("system context\n%s%s", table(values, 2).c_str(), charts.c_str());
}

int context(const Options& options) {
  PersistableBundle reply;
  requireOk(collector()->getSystemContextData(&reply));
  if (options.json) {
    printJson(toJson(reply));
    return kDone;
  }
  printContext(childOf(reply, String16(bundlekey::kSystemContextData)));
  printGlobals(childOf(reply, String16(bundlekey::kGlobalStateData)));
  return kDone;
}

int notify(int32_t code, const Options& options) {
  const auto service = interface_cast<IDiagnosticsNotificationService>(
      serviceBinder(IDiagnosticsNotificationService::kServiceName));
  requireOk(service->notifySystemEvent(static_cast<IDiagnosticsNotificationEventCode>(code), {}));
  if (options.json) {
    Json::Value document(Json::objectValue);
    document["sent"] = code;
    printJson(document);
  } else {
    printf("Sent event %d. The call is one-way: the service's log says what became of it.\n", code);
  }
  return kDone;
}

// The round trip of a ping in microseconds. Throws a Refusal where the service is gone.
int64_t pingUs(const char* name) {
  const sp<android::IBinder> binder = serviceBinder(name);
  const auto start = std::chrono::steady_clock::now();
  requireOk(android::binder::Status::fromStatusT(binder->pingBinder()));
  return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - start)
      .count();
}

int ping(const Options& options) {
  Json::Value document(Json::objectValue);
  for (const char* name :
       {IDiagnosticsCollectorService::kServiceName, IDiagnosticsNotificationService::kServiceName}) {
    const int64_t microseconds = pingUs(name);
    document[name]["round_trip_us"] = static_cast<Json::Int64>(microseconds);
    if (!options.json) printf("%s answers (%ld us)\n", name, static_cast<long>(microseconds));
  }
  if (options.json) printJson(document);
  return kDone;
}

// Adds a command that talks to the service and so is given a time to do it in.
CLI::App* addCommand(CLI::App& app, const Options& options, int& exitCode, const char* name,
                     const char* description, std::function<int()> calls) {
  CLI::App* command = app.add_subcommand(name, description);
  command->callback(
      [&options, &exitCode, calls = std::move(calls)] { exitCode = within(options.timeoutSeconds, calls); });
  return command;
}

}  // namespace

void addServiceCommands(CLI::App& app, const Options& options, int& exitCode) {
  const auto add = [&](const char* name, const char* description, std::function<int()> calls) {
    return addCommand(app, options, exitCode, name, description, std::move(calls));
  };
  const auto number = std::make_shared<int32_t>(0);
  add("state", "What a process last published", [number, &options] { return state(*number, options); })
      ->add_option("PID", *number, "The process, dead for up to a minute or alive")
      ->required();
  add("states", "What every known process last published", [&options] { return states(options); });
  add("context", "The system: build, test run, histories, global states",
      [&options] { return context(options); });
  add("notify", "Tell the service of a system event", [number, &options] { return notify(*number, options); })
      ->add_option("CODE", *number, "0: an application crashed; 1: an application does not respond")
      ->required();
  add("ping", "Whether both binder services answer", [&options] { return ping(options); });
}

}  // namespace diagctl
