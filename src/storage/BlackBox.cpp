#include "storage/BlackBox.h"

#include <algorithm>
#include <ctime>
#include <sstream>
#include <tuple>
#include <utility>

namespace Torv::OS::Diagnostics {

using Base::StringMap;

BlackBox::BlackBox(WallClock wallClock, ProcessExists processExists, const BlackBoxLimits& limits)
    : mWallClock(std::move(wallClock)), mProcessExists(std::move(processExists)), mLimits(limits) {}

void BlackBox::addProcessState(int32_t pid, const std::string& key, int64_t timestamp,
                               const std::string& value) {
  const auto found = mProcesses.find(pid);
  const bool tooLong = std::max(key.size(), value.size()) > kMaxTextBytes;
  Process* const process = tooLong ? nullptr : found != mProcesses.end() ? &found->second : admit(pid);
  if (process == nullptr) return noteLoss(pid, 1);
  State& state = process->state;
  const size_t before = state.bytes();
  state.add(key, timestamp, value);
  if (state.bytes() > mLimits.maxProcessBytes) noteLoss(pid, state.keepNewest(mLimits.maxProcessBytes / 2));
  mProcessBytes += state.bytes() - before;
  if (mProcessBytes > mLimits.maxBytes) makeRoom();
}

void BlackBox::addGlobalState(const std::string& nameSpace, const std::string& key, int64_t timestamp,
                              const std::string& value) {
  const size_t longest = std::max({nameSpace.size(), key.size(), value.size()});
  const size_t added = nameSpace.size() + key.size() + value.size();
  if (longest > kMaxTextBytes || mGlobalBytes + added > mLimits.maxGlobalBytes) {
    ++mOtherLosses;
    return;
  }
  const auto [found, isNew] = mGlobalStates.try_emplace(nameSpace);
  State& state = found->second;
  const size_t before = isNew ? 0 : state.bytes() + nameSpace.size();
  state.dropIfNewer(key, timestamp);
  state.add(key, timestamp, value);
  mGlobalBytes += state.bytes() + nameSpace.size() - before;
}

void BlackBox::markProcessAsDead(int32_t pid) const {
  const auto found = mProcesses.find(pid);
  if (found == mProcesses.end() || found->second.state.isDead) return;
  found->second.state.isDead = true;
  found->second.state.deathTime = mWallClock();
}

std::optional<StringMap> BlackBox::getAllForPid(int32_t pid, size_t maxReplyBytes) const {
  const auto found = mProcesses.find(pid);
  if (found == mProcesses.end()) return std::nullopt;
  const State& state = found->second.state;
  const size_t forStates = maxReplyBytes - std::min(maxReplyBytes, kReplyBytesPerProcess);
  return state.replyBytes() <= forStates ? state.getAll(false) : state.getNewest(forStates);
}

BlackBox::ProcessStates BlackBox::getAllProcessStates(size_t maxReplyBytes, std::vector<int>* leftOut) const {
  std::vector<std::pair<size_t, Processes::const_iterator>> sizes;
  sizes.reserve(mProcesses.size());
  size_t sum = mProcesses.size() * kReplyBytesPerProcess;
  for (auto process = mProcesses.begin(); process != mProcesses.end(); ++process) {
    sizes.emplace_back(process->second.state.replyBytes(), process);
    sum += sizes.back().first;
  }
  if (sum > maxReplyBytes) {
    std::sort(sizes.begin(), sizes.end(), [](const auto& a, const auto& b) { return a.first > b.first; });
  }
  ProcessStates all;
  all.reserve(mProcesses.size());
  for (const auto& [size, process] : sizes) {
    if (sum > maxReplyBytes) {
      sum -= size;
      all.try_emplace(process->first);
      leftOut->push_back(process->first);
    } else {
      all.try_emplace(process->first, process->second.state.getAll(false));
    }
  }
  return all;
}

BlackBox::GlobalStates BlackBox::getAllGlobalStates() const {
  GlobalStates all;
  for (const auto& [nameSpace, state] : mGlobalStates) all.emplace(nameSpace, state.getAll(true));
  return all;
}

std::vector<int> BlackBox::getAllLivePids() const {
  std::vector<int> pids;
  pids.reserve(mProcesses.size());
  for (const auto& [pid, process] : mProcesses) {
    if (!process.state.isDead) pids.push_back(pid);
  }
  return pids;
}

void BlackBox::cleanupAllWithTtl(int64_t ttlSeconds) {
  const int64_t now = mWallClock();
  for (auto item = mProcesses.begin(); item != mProcesses.end();) {
    const auto process = item++;
    const State& state = process->second.state;
    int64_t end = 0;
    const bool never = __builtin_add_overflow(state.deathTime, ttlSeconds, &end);
    if (state.isDead && !never && end <= now) forget(process);
  }
}

std::optional<std::string> BlackBox::takeLossReport() {
  const int64_t now = mWallClock();
  const bool isEarly = mLastReport && now >= *mLastReport && now - *mLastReport < kLossLogPeriodSeconds;
  if (isEarly || (mLosses.empty() && mOtherLosses == 0)) return std::nullopt;
  mLastReport = now;
  size_t sum = mOtherLosses;
  std::ostringstream processes;
  for (const auto& [pid, states] : std::exchange(mLosses, {})) {
    sum += states;
    processes << " " << pid << ": " << states << ",";
  }
  processes << " others: " << std::exchange(mOtherLosses, 0);
  return "The black box dropped or refused " + std::to_string(sum) + " states. By process:" + processes.str();
}

int64_t BlackBox::unixTime() {
  return time(nullptr);
}

// Returns the place for a new pid's states, or null if there is none.
BlackBox::Process* BlackBox::admit(int32_t pid) {
  const bool hasProcess = mProcessExists(pid);
  if (mProcesses.size() >= mLimits.maxProcesses && !(hasProcess && forgetOneWithoutProcess())) return nullptr;
  Process& process = mProcesses[pid];
  process.hasProcess = hasProcess;
  process.arrival = mArrivals++;
  return &process;
}

bool BlackBox::forgetOneWithoutProcess() {
  for (const Processes::iterator payer : inOrderOfPayment()) {
    if (payer->second.hasProcess) continue;
    noteLoss(payer->first, payer->second.state.keyCount());
    forget(payer);
    return true;
  }
  return false;
}

void BlackBox::makeRoom() {
  for (const Processes::iterator payer : inOrderOfPayment()) {
    if (mProcessBytes <= mLimits.bytesAfterCut) return;
    State& state = payer->second.state;
    const size_t before = state.bytes();
    if (before > mLimits.share()) {
      noteLoss(payer->first, state.keepNewest(mLimits.share()));
      mProcessBytes -= before - state.bytes();
    } else {
      noteLoss(payer->first, state.keyCount());
      forget(payer);
    }
  }
}

std::vector<BlackBox::Processes::iterator> BlackBox::inOrderOfPayment() {
  std::vector<Processes::iterator> payers;
  payers.reserve(mProcesses.size());
  for (auto item = mProcesses.begin(); item != mProcesses.end(); ++item) {
    // A process may have got the pid after its first state came, for example if the pid was invented first.
    item->second.hasProcess = item->second.hasProcess || mProcessExists(item->first);
    payers.push_back(item);
  }
  std::sort(payers.begin(), payers.end(), [this](Processes::iterator a, Processes::iterator b) {
    const auto key = [this](const Process& process) {
      const size_t bytes = process.state.bytes();
      const bool aboveShare = bytes > mLimits.share();
      const bool byArrival = !aboveShare && !process.hasProcess;
      return std::make_tuple(aboveShare, !process.hasProcess, byArrival ? process.arrival : bytes);
    };
    return key(a->second) > key(b->second);
  });
  return payers;
}

void BlackBox::forget(Processes::iterator process) {
  mProcessBytes -= process->second.state.bytes();
  mProcesses.erase(process);
}

void BlackBox::noteLoss(int32_t pid, size_t states) {
  if (states == 0) return;
  const bool counted = mLosses.size() < kMaxCountedProcesses || mLosses.count(pid) > 0;
  (counted ? mLosses[pid] : mOtherLosses) += states;
}

}  // namespace Torv::OS::Diagnostics
