#include "Watch.h"

#include <cerrno>
#include <fstream>
#include <thread>

#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>

#include "Calls.h"

namespace diagctl {

using std::chrono::milliseconds;
using SteadyClock = std::chrono::steady_clock;

// The thread blocks all signals, so that the ones that end the command reach the thread that waits for them.
// It is detached because a call into a stopped service cannot be ended; isStuck() tells the owner.
std::optional<Result<timeline::Answer>> Asker::ask(bool withContext, milliseconds patience) {
  if (!mAnswer.valid()) {
    std::packaged_task<Result<timeline::Answer>()> task([withContext] {
      sigset_t all;
      sigfillset(&all);
      pthread_sigmask(SIG_SETMASK, &all, nullptr);
      return askService(withContext);
    });
    mAnswer = task.get_future();
    std::thread(std::move(task)).detach();
  }
  // get() below empties the future, which is what makes the next call start anew.
  if (mAnswer.wait_for(patience) == std::future_status::timeout) return std::nullopt;
  return mAnswer.get();
}

// signalfd(2) gives a signal only if it is blocked in all threads, hence the order that the header asks for.
EndSignals::EndSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&signals, number);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  mFd.reset(signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
}

// poll(2) counts milliseconds and may be interrupted, so the time left is computed anew each round.
bool EndSignals::waitUntil(SteadyClock::time_point until) const {
  while (true) {
    const auto left = std::chrono::ceil<milliseconds>(until - SteadyClock::now());
    pollfd wait{.fd = mFd.get(), .events = POLLIN, .revents = 0};
    const int ready = poll(&wait, 1, static_cast<int>(std::max<int64_t>(left.count(), 0)));
    if (ready > 0) return true;
    if (SteadyClock::now() >= until) return false;
  }
}

std::set<int32_t> deadOf(const std::map<int32_t, timeline::Texts>& processes) {
  std::set<int32_t> dead;
  for (const auto& [pid, states] : processes) {
    // Only ESRCH says that there is no such process: others' processes answer with EPERM.
    if (pid > 0 && kill(pid, 0) != 0 && errno == ESRCH) dead.insert(pid);
  }
  return dead;
}

// A process that has ended, or that runs on another machine, has no file there; it stays without a name.
// Reading the file once for each process is what keeps a round with 300 of them cheap.
std::map<int32_t, std::string> Names::newOf(const std::map<int32_t, timeline::Texts>& processes) {
  std::map<int32_t, std::string> names;
  std::set<int32_t> seen;
  for (const auto& [pid, states] : processes) {
    seen.insert(pid);
    if (mNamed.contains(pid)) continue;
    std::string name;
    std::getline(std::ifstream("/proc/" + std::to_string(pid) + "/comm"), name);
    if (!name.empty()) names[pid] = name;
  }
  // A pid that was away is named anew when it returns, because it may be another program's then.
  mNamed = std::move(seen);
  return names;
}

}  // namespace diagctl
