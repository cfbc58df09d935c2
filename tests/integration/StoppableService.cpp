// The service in a process that SIGTERM ends in good order: it stops the binder pool.

#include <limits>
#include <memory>
#include <optional>
#include <thread>

#include <signal.h>

#include <binder/IPCThreadState.h>

#include "service/RunService.h"

int main() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);  // inherited by every thread of the service
  std::thread([signals] {
    int signal = 0;
    sigwait(&signals, &signal);
    android::IPCThreadState::self()->stopProcess();
  }).detach();
  return Torv::OS::Diagnostics::runService();
}
