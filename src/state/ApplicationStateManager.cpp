#include "state/ApplicationStateManager.h"

#include <cerrno>
#include <chrono>
#include <utility>
#include <vector>

#include <android/log.h>
#include <unistd.h>

namespace Torv::OS::Diagnostics {
namespace {

constexpr int64_t kTtlSeconds = 60;
constexpr std::chrono::seconds kCleanupPeriod{30};
constexpr char kCleanupThreadName[] = "ApplicationStateManagerCleanupThread";

}  // namespace

std::unique_ptr<ApplicationStateManager> ApplicationStateManager::makeDefaultManager() {
  std::unique_ptr<StatsManager> statsManager = StatsManager::makeDefaultManager();
  if (statsManager == nullptr) {
    __android_log_write(ANDROID_LOG_ERROR, nullptr, "Failed to create stats manager\n");
    return nullptr;
  }
  return std::make_unique<ApplicationStateManager>(std::make_unique<BlackBox>(), std::move(statsManager),
                                                   kTtlSeconds);
}

ApplicationStateManager::ApplicationStateManager(std::unique_ptr<BlackBox> blackBox,
                                                 std::unique_ptr<StatsManager> statsManager,
                                                 int64_t ttlSeconds, ProcessExists processExists)
    : mBlackBox(std::move(blackBox)),
      mStatsManager(std::move(statsManager)),
      mTtlSeconds(ttlSeconds),
      mProcessExists(std::move(processExists)),
      mCleanupTask(kCleanupPeriod, kCleanupThreadName, [this] { cleanup(); }) {}

std::optional<std::unordered_map<std::string, std::string>>
ApplicationStateManager::getApplicationStateForPid(int32_t pid) {
  updateApplicationStateManager();
  Base::RecursiveLockGuard lock(mLock);
  return mBlackBox->getAllForPid(pid);
}

std::unordered_map<int, std::unordered_map<std::string, std::string>>
ApplicationStateManager::getAllProcessStates() {
  updateApplicationStateManager();
  Base::RecursiveLockGuard lock(mLock);
  return mBlackBox->getAllProcessStates();
}

std::unordered_map<std::string, std::unordered_map<std::string, std::string>>
ApplicationStateManager::getAllGlobalStates() {
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
  Base::LockGuard update(mUpdateMutex);
  std::vector<ApplicationState> states = mStatsManager->fetchReports();
  if (states.empty()) return;
  Base::RecursiveLockGuard lock(mLock);
  for (ApplicationState& state : states) {
    if (state.global) {
      mBlackBox->addGlobalState(state.nameSpace, state.key, state.timestamp, std::move(state.value));
    } else {
      mBlackBox->addProcessState(state.pid, state.key, state.timestamp, std::move(state.value));
    }
  }
}

void ApplicationStateManager::checkForDeadProcesses() {
  Base::RecursiveLockGuard lock(mLock);
  for (const int pid : mBlackBox->getAllLivePids()) {
    if (!mProcessExists(pid)) mBlackBox->markProcessAsDead(pid);
  }
}

void ApplicationStateManager::cleanup() {
  Base::RecursiveLockGuard lock(mLock);
  checkForDeadProcesses();
  mBlackBox->cleanupAllWithTtl(mTtlSeconds);
}

bool ApplicationStateManager::processExists(pid_t pid) {
  errno = 0;
  if (getpgid(pid) >= 0) return true;
  return errno == EPERM || errno == EACCES;  // it is there, we just may not look
}

}  // namespace Torv::OS::Diagnostics
