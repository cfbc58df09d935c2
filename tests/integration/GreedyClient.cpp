// greedy_client THREADS: a client that asks for all processes on that many threads, for ever, until a test
// stops or kills it. Prints "ready" when every thread has had its first answer.

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include <binder/IServiceManager.h>

#include "dev/kerno/internal/diagnostics/IDiagnosticsCollectorService.h"

using dev::kerno::internal::diagnostics::IDiagnosticsCollectorService;

int main(int /*argc*/, char** argv) {
  const auto collector =
      android::interface_cast<IDiagnosticsCollectorService>(android::defaultServiceManager()->checkService(
          android::String16(IDiagnosticsCollectorService::kServiceName)));
  std::atomic<int> waiting = atoi(argv[1]);
  std::vector<std::thread> threads(waiting);
  for (std::thread& thread : threads) {
    thread = std::thread([&] {
      for (bool first = true; true; first = false) {
        android::os::PersistableBundle all;
        collector->getAllAvailableApplicationStateData(&all);
        if (!first || --waiting > 0) continue;
        puts("ready");
        fflush(stdout);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}
