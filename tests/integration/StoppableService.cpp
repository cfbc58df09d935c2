// The service's own main, which serves until its process is killed, in a process that can be asked: a SIGTERM
// stops it serving, a SIGUSR1 makes it print how many bytes of the heap are in use.

#include <cstdio>
#include <limits>
#include <memory>
#include <optional>
#include <thread>

#include <dlfcn.h>
#include <malloc.h>
#include <signal.h>

#include <binder/IPCThreadState.h>

int serviceMain();  // src/service/main.cpp

namespace {

size_t heapInUse() {
  // There where a sanitizer has put its own allocator in the place of the C library's.
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
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);  // for every thread of the service too
  std::thread(obey, signals).detach();
  return serviceMain();
}
