// The service's own main, which serves until its process is killed, in a process that a SIGTERM stops
// serving.

#include <limits>
#include <memory>
#include <optional>
#include <thread>

#include <signal.h>

#include <binder/IPCThreadState.h>

int serviceMain();  // src/service/main.cpp

int main() {
  sigset_t stop;
  sigemptyset(&stop);
  sigaddset(&stop, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stop, nullptr);  // for every thread of the service too
  std::thread([stop] {
    int signal = 0;
    sigwait(&stop, &signal);
    android::IPCThreadState::self()->stopProcess();
  }).detach();
  return serviceMain();
}
