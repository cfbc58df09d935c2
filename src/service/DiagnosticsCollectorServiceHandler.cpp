#include "service/DiagnosticsCollectorServiceHandler.h"

#include <algorithm>
#include <atomic>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <android/log.h>

#include "LogTags.h"
#include "base/Clock.h"
#include "service/BundlePacking.h"
#include "storage/Limits.h"

namespace Torv::OS::Diagnostics {

using android::binder::Status;
using android::os::PersistableBundle;
using Telemetry::EventFlow;
using Telemetry::EventName;
using Telemetry::EventType;

namespace {

// Why a request cannot be answered: the text for the log, and the text for telemetry.
struct Refusal {
  const char* logLine;
  const char* errorReason;
};

constexpr Refusal kNoStateManager{"Missing state manager\n",
                                  "Application state manager was not properly initialized."};
constexpr Refusal kNoBundle{"null aidl return\n", "Invalid persistable bundle was provided to the API."};

// Returns null if a request about application states can be answered.
const Refusal* refusalOf(const ApplicationStateManager* manager, const PersistableBundle* out) {
  if (manager == nullptr) return &kNoStateManager;
  return out == nullptr ? &kNoBundle : nullptr;
}

void logError(const char* text) {
  __android_log_print(ANDROID_LOG_ERROR, kServiceTag, "%s", text);
}

// Logs what was left out of an answer. Does nothing if `names` is empty, or if the last line about names of
// this type is less than a second old.
template <typename Name>
void logLeftOut(const char* kind, const std::vector<Name>& names) {
  constexpr size_t kMaxNames = 100;
  constexpr int64_t kPeriodNs = 1'000'000'000;
  static std::atomic<int64_t> nextLogNs{0};
  if (names.empty()) return;
  const int64_t nowNs = Base::bootTimeNs();
  int64_t next = nextLogNs.load();
  if (nowNs < next || !nextLogNs.compare_exchange_strong(next, nowNs + kPeriodNs)) return;
  std::ostringstream list;
  for (size_t i = 0; i < std::min(names.size(), kMaxNames); ++i) list << " " << names[i];
  __android_log_print(ANDROID_LOG_WARN, kServiceTag, "%zu %s did not fit into a reply and were left out:%s%s",
                      names.size(), kind, list.str().c_str(), names.size() > kMaxNames ? " ..." : "");
}

Status nullPointer() {
  return Status::fromExceptionCode(Status::EX_NULL_POINTER);
}

}  // namespace

std::shared_ptr<DiagnosticsCollectorServiceHandler>
DiagnosticsCollectorServiceHandler::makeDefaultServiceHandler() {
  std::unique_ptr<ApplicationStateManager> states = ApplicationStateManager::makeDefaultManager();
  if (states == nullptr) {
    logError("Failed to create state manager\n");
    return nullptr;
  }
  std::unique_ptr<SystemContextManager> context = SystemContextManager::makeDefaultManager();
  if (context == nullptr) {
    logError("Failed to create system context manager\n");
    return nullptr;
  }
  return std::make_shared<DiagnosticsCollectorServiceHandler>(std::move(states), std::move(context));
}

DiagnosticsCollectorServiceHandler::DiagnosticsCollectorServiceHandler(
    std::unique_ptr<ApplicationStateManager> applicationStateManager,
    std::unique_ptr<SystemContextManager> systemContextManager)
    : DiagnosticsCollectorTelemetry(/*enabled=*/true),
      mApplicationStateManager(std::move(applicationStateManager)),
      mSystemContextManager(std::move(systemContextManager)) {}

Status DiagnosticsCollectorServiceHandler::getApplicationStateDataForProcess(int pid,
                                                                             PersistableBundle* out) {
  reportDefaultEventWithPid(EventName::GetForProcessStart, EventType::Start, EventFlow::Collector, pid);
  if (const Refusal* refusal = refusalOf(mApplicationStateManager.get(), out)) {
    logError(refusal->logLine);
    reportEvent(EventName::GetForProcessError, EventType::Error, EventFlow::Collector, pid, std::nullopt,
                refusal->errorReason, std::nullopt);
    return nullPointer();
  }
  const std::optional<StringMap> states =
      mApplicationStateManager->getApplicationStateForPid(pid, kMaxReplyBytes);
  if (!states) return Status::ok();
  packProcessEntriesToBundle(pid, *states, out);
  reportDefaultEventWithPid(EventName::GetForProcessSuccess, EventType::Success, EventFlow::Collector, pid);
  return Status::ok();
}

Status DiagnosticsCollectorServiceHandler::getAllAvailableApplicationStateData(PersistableBundle* out) {
  reportDefaultEvent(EventName::GetAllStart, EventType::Start, EventFlow::Collector);
  if (const Refusal* refusal = refusalOf(mApplicationStateManager.get(), out)) {
    logError(refusal->logLine);
    reportDefaultErrorEvent(EventName::GetAllError, EventType::Error, EventFlow::Collector,
                            refusal->errorReason);
    return nullPointer();
  }
  mApplicationStateManager->updateApplicationStateManager();
  std::vector<int> leftOut;
  {
    Base::LockGuard oneAtATime(mWholeTable);
    packAllProcessStatesToBundle(mApplicationStateManager->readProcessStates(kMaxReplyBytes, &leftOut), out);
  }
  logLeftOut("processes", leftOut);
  reportDefaultEvent(EventName::GetAllSuccess, EventType::Success, EventFlow::Collector);
  return Status::ok();
}

Status DiagnosticsCollectorServiceHandler::getSystemContextData(PersistableBundle* out) {
  if (out == nullptr) {
    logError(kNoBundle.logLine);
    return nullPointer();
  }
  StringMap context = mSystemContextManager->getSystemContext();
  logLeftOut("values", leaveOutLargest(kMaxContextReplyBytes, &context));
  packSystemContextToBundle(context, mApplicationStateManager->getAllGlobalStates(), out);
  return Status::ok();
}

void DiagnosticsCollectorServiceHandler::startCleanupPeriodicTask() {
  mApplicationStateManager->startCleanupPeriodicTask();
}

void DiagnosticsCollectorServiceHandler::stopCleanupPeriodicTask() {
  mApplicationStateManager->stopCleanupPeriodicTask();
}

void DiagnosticsCollectorServiceHandler::startSystemStateCollectorThread() {
  mSystemContextManager->startSystemStateCollectorThread();
}

void DiagnosticsCollectorServiceHandler::stopSystemStateCollectorThread() {
  mSystemContextManager->stopSystemStateCollectorThread();
}

void DiagnosticsCollectorServiceHandler::onEvent(
    int eventId, std::optional<std::unordered_map<std::string, std::string>> data) {
  if (data && !data->empty()) {
    __android_log_print(ANDROID_LOG_INFO, kServiceTag,
                        "DiagnosticsCollectorService::onEvent called with data and with event id: %d",
                        eventId);
  }
  __android_log_print(ANDROID_LOG_INFO, kServiceTag,
                      "DiagnosticsCollectorService::onEvent called with event id: %d", eventId);
  mApplicationStateManager->updateApplicationStateManager();
}

}  // namespace Torv::OS::Diagnostics
