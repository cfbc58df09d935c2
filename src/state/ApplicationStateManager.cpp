#include "state/ApplicationStateManager.h"

#include <cerrno>
#include <chrono>
#include <utility>

#include <android/log.h>
#include <unistd.h>

namespace Torv::OS::Diagnostics {

using Base::StringMap;

namespace {

constexpr int64_t kTtlSeconds = 60;
constexpr std::chrono::seconds kCleanupPeriod{30};
constexpr char kStorageTag[] = "libdiagnostics-storage";
constexpr char kCleanupThreadName[] = "ApplicationStateManagerCleanupThread";

}  // namespace

std::unique_ptr<ApplicationStateManager> ApplicationStateManager::makeDefaultManager() {
  std::unique_ptr<StatsManager> statsManager = StatsManager::makeDefaultManager();
  if (statsManager == nullptr) {
    __android_log_print(ANDROID_LOG_ERROR, nullptr, "Failed to create stats manager\n");
    return nullptr;
  }
  return std::make_unique<ApplicationStateManager>(
      std::make_unique<BlackBox>(&BlackBox::unixTime, &processExists), std::move(statsManager), kTtlSeconds);
}

ApplicationStateManager::ApplicationStateManager(std::unique_ptr<BlackBox> blackBox,
                                                 std::unique_ptr<StatsManager> statsManager,
                                                 int64_t ttlSeconds, ProcessExists processExists)
    : mBlackBox(std::move(blackBox)),
      mStatsManager(std::move(statsManager)),
      mTtlSeconds(ttlSeconds),
      mProcessExists(std::move(processExists)),
      mCleanupTask(kCleanupPeriod, kCleanupThreadName, [this] { cleanup(); }) {}

std::optional<StringMap> ApplicationStateManager::getApplicationStateForPid(int32_t pid,
                                                                            size_t maxReplyBytes) {
  updateApplicationStateManager();
  Base::RecursiveLockGuard lock(mLock);
  return mBlackBox->getAllForPid(pid, maxReplyBytes);
}

BlackBox::ProcessStates ApplicationStateManager::getAllProcessStates() {
  updateApplicationStateManager();
  return readProcessStates(SIZE_MAX, nullptr);
}

BlackBox::ProcessStates ApplicationStateManager::readProcessStates(size_t maxReplyBytes,
                                                                   std::vector<int>* leftOut) {
  Base::RecursiveLockGuard lock(mLock);
  return mBlackBox->getAllProcessStates(maxReplyBytes, leftOut);
}

BlackBox::GlobalStates ApplicationStateManager::getAllGlobalStates() {
  updateApplicationStateManager();
  Base::RecursiveLockGuard lock(mLock);
  return mBlackBox->getAllGlobalStates();
}

void ApplicationStateManager::startCleanupPeriodicTask() {
  mCleanupTask.start(false);
}

void ApplicationStateManager::stopCleanupPeriodicTask() {
  mCleanupTask.stop(true);
}

void ApplicationStateManager::updateApplicationStateManager() {
  if (!beginUpdate()) return;
  const std::vector<ApplicationState> states = mStatsManager->fetchReports();
  if (!states.empty()) apply(states);
  endUpdate();
  if (!states.empty()) logLosses();
}

// Returns true if the caller has to do an update, and false if another thread has done one for it. An update
// that was under way when the caller came does not count, because its fetch may have missed what was
// published since.
bool ApplicationStateManager::beginUpdate() {
  Base::LockGuard lock(mUpdateMutex);
  const uint64_t needed = mUpdatesBegun + 1;
  while (mUpdating && mUpdatesDone < needed) mUpdateDone.wait(mUpdateMutex);
  if (mUpdatesDone >= needed) return false;
  mUpdating = true;
  ++mUpdatesBegun;
  return true;
}

void ApplicationStateManager::endUpdate() {
  Base::LockGuard lock(mUpdateMutex);
  mUpdating = false;
  mUpdatesDone = mUpdatesBegun;
  mUpdateDone.notify_all();
}

void ApplicationStateManager::apply(const std::vector<ApplicationState>& states) {
  Base::RecursiveLockGuard lock(mLock);
  for (const ApplicationState& state : states) {
    if (state.global) {
      mBlackBox->addGlobalState(state.nameSpace, state.key, state.timestamp, state.value);
    } else {
      mBlackBox->addProcessState(state.pid, state.key, state.timestamp, state.value);
    }
  }
}

void ApplicationStateManager::logLosses() {
  std::optional<std::string> report;
  {
    Base::RecursiveLockGuard lock(mLock);
    report = mBlackBox->takeLossReport();
  }
  if (report) __android_log_print(ANDROID_LOG_WARN, kStorageTag, "%s", report->c_str());
}

void ApplicationStateManager::checkForDeadProcesses() {
  Base::RecursiveLockGuard lock(mLock);
  for (const int pid : mBlackBox->getAllLivePids()) {
    if (!mProcessExists(pid)) mBlackBox->markProcessAsDead(pid);
  }
}

void ApplicationStateManager::cleanup() {
  {
    Base::RecursiveLockGuard lock(mLock);
    checkForDeadProcesses();
    mBlackBox->cleanupAllWithTtl(mTtlSeconds);
  }
  logLosses();
}

bool ApplicationStateManager::processExists(pid_t pid) {
  errno = 0;
  if (getpgid(pid) >= 0) return true;
  return errno == EPERM || errno == EACCES;  // the process exists, and we may not inspect it
}

}  // namespace Torv::OS::Diagnostics
