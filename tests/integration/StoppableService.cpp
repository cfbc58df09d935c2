// The service in a process that obeys two signals: SIGTERM stops its binder pool, so that it ends in good
// order; SIGUSR1 makes it print how many bytes of the heap are in use.

#include <cstdio>
#include <limits>
#include <memory>
#include <optional>
#include <thread>

#include <dlfcn.h>
#include <malloc.h>
#include <signal.h>

#include <binder/IPCThreadState.h>

#include "service/RunService.h"

namespace {

size_t heapInUse() {
  // This symbol exists if a sanitizer has replaced the allocator of the C library.
  void* const sanitizers = dlsym(RTLD_DEFAULT, "__sanitizer_get_current_allocated_bytes");
  if (sanitizers != nullptr) return reinterpret_cast<size_t (*)()>(sanitizers)();
  const struct mallinfo2 heap = mallinfo2();
  return heap.uordblks + heap.hblkhd;
}

void obey(const sigset_t& signals) {
  int signal = 0;
  while (sigwait(&signals, &signal) == 0 && signal == SIGUSR1) {
    fprintf(stderr, "heap in use: %zu\n", heapInUse());
  }
  android::IPCThreadState::self()->stopProcess();
}

}  // namespace

int main() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGUSR1);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);  // inherited by every thread of the service
  std::thread(obey, signals).detach();
  return Torv::OS::Diagnostics::runService();
}
