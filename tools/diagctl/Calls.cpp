#include "Calls.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <thread>
#include <utility>

#include <unistd.h>

#include <binder/IServiceManager.h>
#include <fmt/format.h>
#include <runtime/RuntimeDirectory.h>
#include <utils/String8.h>

#include "Commands.h"
#include "Output.h"
#include "dev/kerno/internal/diagnostics/BundleKeys.h"

namespace diagctl {

using android::IBinder;
using android::interface_cast;
using android::sp;
using android::String16;
using android::base::Error;
using android::binder::Status;
using android::os::PersistableBundle;
namespace bundlekey = dev::kerno::internal::diagnostics::bundlekey;
using dev::kerno::internal::diagnostics::IDiagnosticsCollectorService;

namespace {

// Applications' keys and values as UTF-8.
// Malformed UTF-16 becomes U+FFFD here; all text further on is valid UTF-8.
timeline::Texts textsOf(const PersistableBundle& bundle) {
  timeline::Texts texts;
  for (const String16& key : bundle.getStringKeys()) texts[toUtf8(key)] = stringOf(bundle, key);
  return texts;
}

// Both halves are always in the reply, even if they are empty. childOf() gives an empty bundle for what is
// missing.
void addSystem(const PersistableBundle& system, timeline::Answer& answer) {
  answer.context = textsOf(childOf(system, String16(bundlekey::kSystemContextData)));
  const PersistableBundle globals = childOf(system, String16(bundlekey::kGlobalStateData));
  for (const String16& name : globals.getPersistableBundleKeys()) {
    answer.globals[toUtf8(name)] =
        textsOf(childOf(childOf(globals, name), String16(bundlekey::kGlobalStateData)));
  }
}

}  // namespace

// Plain functions, so that each call of the interface is written out once for all commands.
Status askStates(IDiagnosticsCollectorService& service, PersistableBundle* answer) {
  return service.getAllAvailableApplicationStateData(answer);
}

Status askSystem(IDiagnosticsCollectorService& service, PersistableBundle* answer) {
  return service.getSystemContextData(answer);
}

// checkService() and not getService(), which waits for the service: a command says at once that there is
// none.
Result<sp<IBinder>> serviceBinder(const char* name) {
  sp<IBinder> binder = android::defaultServiceManager()->checkService(String16(name));
  if (binder == nullptr) {
    return Error()
           << name << " is not running in " << platform::runtimeDirectory()
           << ". Start it with ./run serve, or name the directory that it serves in TORV_RUNTIME_DIR.";
  }
  return binder;
}

Result<PersistableBundle> answerTo(const Question& question) {
  const auto binder = serviceBinder(IDiagnosticsCollectorService::kServiceName);
  if (!binder.ok()) return Error() << binder.error();
  PersistableBundle answer;
  const auto asked = outcomeOf(question(*interface_cast<IDiagnosticsCollectorService>(*binder), &answer));
  if (!asked.ok()) return Error() << asked.error();
  return answer;
}

// The two failures that a caller can do something about have sentences of their own.
Result<void> outcomeOf(const Status& status) {
  if (status.isOk()) return {};
  switch (status.transactionError()) {
    case android::DEAD_OBJECT:
      return Error() << "The service ended during the call. Its log says why; ask again when it is back.";
    case android::FAILED_TRANSACTION:
      return Error()
             << "The answer does not fit into one reply. Ask for single processes: diagctl state PID.";
    default:
      return Error() << "The service refused: " << status.toString8().string();
  }
}

// The clocks are read between the two calls: changes are dated with them, and ages in the context are a
// moment older.
Result<timeline::Answer> askService(bool withContext) {
  const auto states = answerTo(askStates);
  if (!states.ok()) return Error() << states.error();
  // The service writes pids as decimal texts; what is none of them would read as 0, which is no process.
  timeline::Answer answer;
  answer.clocks = timeline::readClocks();
  for (const String16& pid : states->getPersistableBundleKeys()) {
    answer.processes[static_cast<int32_t>(strtol(toUtf8(pid).c_str(), nullptr, 10))] =
        textsOf(childOf(childOf(*states, pid), String16(bundlekey::kApplicationStateData)));
  }
  if (!withContext) return answer;
  const auto system = answerTo(askSystem);
  if (!system.ok()) return Error() << system.error();
  addSystem(*system, answer);
  return answer;
}

Result<timeline::Timeline> timelineFrom(const std::string& path) {
  if (!path.empty()) return timeline::fromFile(path);
  const auto answer = askService(true);
  if (!answer.ok()) return Error() << answer.error();
  return timeline::fromAnswer(*answer);
}

// The sentence may hold an application's text (a key, an exception's message), so it is made printable before
// a terminal gets it.
int refuse(const std::string& sentence) {
  fprintf(stderr, "diagctl: %s\n", printable(sentence).c_str());
  return kRefused;
}

int exitCodeOf(const Result<void>& result) {
  return result.ok() ? kDone : refuse(result.error().message());
}

// _exit, because exit() would destroy what the thread still uses. What was printed before stays: the commands
// that print step by step flush.
int within(double timeoutSeconds, const std::function<Result<void>()>& calls) {
  std::packaged_task<Result<void>()> task(calls);
  std::future<Result<void>> result = task.get_future();
  std::thread thread(std::move(task));
  if (result.wait_for(std::chrono::duration<double>(timeoutSeconds)) == std::future_status::timeout) {
    refuse(unansweredText(timeoutSeconds));
    _exit(kRefused);
  }
  // The result is there, so the thread ends at once.
  thread.join();
  return exitCodeOf(result.get());
}

// Rounded up, because a time-out of 0 ms would never let the service answer.
Result<libstatsd::StatsdStatus> statusWithin(double seconds) {
  const std::chrono::duration<double> timeout(seconds);
  return libstatsd::readStatsdStatus(std::chrono::ceil<std::chrono::milliseconds>(timeout));
}

std::string unansweredText(double timeoutSeconds) {
  return fmt::format(
      "The service in {} did not answer within {} s. It may be stopped or overloaded: see its log, or wait "
      "longer "
      "with --timeout.",
      platform::runtimeDirectory(), timeoutSeconds);
}

}  // namespace diagctl
