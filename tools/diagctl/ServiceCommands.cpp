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
#include "Output.h"
#include "dev/kerno/internal/diagnostics/BundleKeys.h"

namespace diagctl {
namespace {

using android::String16;
using android::base::Error;
using android::os::PersistableBundle;
namespace bundlekey = dev::kerno::internal::diagnostics::bundlekey;
using dev::kerno::internal::diagnostics::IDiagnosticsCollectorService;
using dev::kerno::internal::diagnostics::IDiagnosticsNotificationEventCode;
using dev::kerno::internal::diagnostics::IDiagnosticsNotificationService;

// One process as people read it: its pid, then its states in the order of their keys.
// A process whose states did not fit into the reply has its first line only.
void printProcess(const PersistableBundle& process) {
  int32_t pid = 0;
  process.getInt(String16(bundlekey::kProcessId), &pid);
  // Keys and values are applications' texts. stringRows() has made them printable.
  const Rows rows = stringRows(childOf(process, String16(bundlekey::kApplicationStateData)));
  printf("process %d\n%s", pid, table(rows, 2).c_str());
}

// An empty answer stands for a process that the service does not know.
// The name is not used by the service, but must not be null.
Result<void> state(int pid, const Options& options) {
  const auto process = answerTo([pid](auto& service, PersistableBundle* answer) {
    return service.getApplicationStateDataForProcess(pid, String16("diagctl"), answer);
  });
  if (!process.ok()) return Error() << process.error();
  if (process->empty()) {
    return Error()
           << "Nothing is known of process " << pid
           << ": it has published no state, or it died more than a minute ago. diagctl states lists the "
              "processes that are known.";
  }
  options.json ? printJson(toJson(*process)) : printProcess(*process);
  return {};
}

// One answer for all processes, so all states are of the same moment.
Result<void> states(const Options& options) {
  const auto all = answerTo(askStates);
  if (!all.ok()) return Error() << all.error();
  if (options.json) {
    printJson(toJson(*all));
    return {};
  }
  // The keys are the decimal pids; people look for them in the order of the numbers.
  std::map<int64_t, String16> byPid;
  for (const String16& key : all->getPersistableBundleKeys()) {
    byPid[strtoll(toUtf8(key).c_str(), nullptr, 10)] = key;
  }
  for (const auto& [pid, key] : byPid) printProcess(childOf(*all, key));
  if (all->empty()) puts("No process has published a state.");
  return {};
}

// Any code is sent, also one that the service does not know: this command tests services too.
Result<void> notify(int32_t code, const Options& options) {
  const auto binder = serviceBinder(IDiagnosticsNotificationService::kServiceName);
  if (!binder.ok()) return Error() << binder.error();
  const auto service = android::interface_cast<IDiagnosticsNotificationService>(*binder);
  auto sent = outcomeOf(service->notifySystemEvent(static_cast<IDiagnosticsNotificationEventCode>(code), {}));
  if (!sent.ok()) return sent;
  if (options.json) {
    Json::Value document(Json::objectValue);
    document["sent"] = code;
    printJson(document);
  } else {
    printf("Sent event %d. The call is one-way: the service's log says what became of it.\n", code);
  }
  return {};
}

// The round trip of a ping in microseconds.
// The look-up is not counted: only the call itself is what clients do again and again.
Result<int64_t> pingUs(const char* name) {
  const auto binder = serviceBinder(name);
  if (!binder.ok()) return Error() << binder.error();
  const auto start = std::chrono::steady_clock::now();
  const auto pinged = outcomeOf(android::binder::Status::fromStatusT((*binder)->pingBinder()));
  if (!pinged.ok()) return Error() << pinged.error();
  return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - start)
      .count();
}

// Both services, because each has a registration of its own.
Result<void> ping(const Options& options) {
  Json::Value document(Json::objectValue);
  for (const char* name :
       {IDiagnosticsCollectorService::kServiceName, IDiagnosticsNotificationService::kServiceName}) {
    const auto microseconds = pingUs(name);
    if (!microseconds.ok()) return Error() << microseconds.error();
    document[name]["round_trip_us"] = Json::Int64{*microseconds};
    if (!options.json) printf("%s answers (%ld us)\n", name, static_cast<long>(*microseconds));
  }
  if (options.json) printJson(document);
  return {};
}

}  // namespace

// All of these call over binder, which has no time-out, so each runs in within(). One number serves two
// commands: only one command runs in a process.
void addServiceCommands(CLI::App& app, const Options& options, int& exitCode) {
  const auto add = [&](const char* name, const char* description, std::function<Result<void>()> calls) {
    CLI::App* command = app.add_subcommand(name, description);
    command->callback([&options, &exitCode, calls = std::move(calls)] {
      exitCode = within(options.timeoutSeconds, calls);
    });
    return command;
  };
  const auto number = std::make_shared<int32_t>(0);
  add("state", "What a process last published", [number, &options] { return state(*number, options); })
      ->add_option("PID", *number, "The process, dead for up to a minute or alive")
      ->required();
  add("states", "What every known process last published", [&options] { return states(options); });
  add("notify", "Tell the service of a system event", [number, &options] { return notify(*number, options); })
      ->add_option("CODE", *number, "0: an application crashed; 1: an application does not respond")
      ->required();
  add("ping", "Whether both binder services answer", [&options] { return ping(options); });
}

}  // namespace diagctl
