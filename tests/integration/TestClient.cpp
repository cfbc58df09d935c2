// Clients of every kind, for tests to start, stop and kill.
//
//   test_client good THREADS PID      calls all there is to call until SIGTERM comes; fails when an
//                                     answer is not what the process PID has published
//   test_client greedy THREADS        asks for all processes, for ever
//   test_client garbage THREADS SEED  sends requests of random bytes to both services, for ever
//   test_client publish PID COUNT     publishes COUNT states a second of process PID, for ever
//
// Prints "ready" when every thread has had its first answer.

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <signal.h>
#include <unistd.h>

#include <binder/IServiceManager.h>
#include <statsd/StatsEventWriter.h>

#include "dev/kerno/internal/diagnostics/IDiagnosticsCollectorService.h"
#include "dev/kerno/internal/diagnostics/IDiagnosticsNotificationService.h"

namespace {

using android::IBinder;
using android::Parcel;
using android::sp;
using android::String16;
using android::os::PersistableBundle;
using dev::kerno::internal::diagnostics::IDiagnosticsCollectorService;
using dev::kerno::internal::diagnostics::IDiagnosticsNotificationEventCode;
using dev::kerno::internal::diagnostics::IDiagnosticsNotificationService;

std::atomic<bool> gStop = false;
std::atomic<long> gCalls = 0;
std::atomic<int> gWaiting = 0;

sp<IBinder> binder(const char* name) {
  sp<IBinder> service = android::defaultServiceManager()->checkService(String16(name));
  if (service == nullptr) {
    fprintf(stderr, "%s is not there\n", name);
    exit(1);
  }
  return service;
}

[[noreturn]] void fail(const std::string& what) {
  fprintf(stderr, "wrong answer after %ld calls: %s\n", gCalls.load(), what.c_str());
  exit(1);
}

// Runs `call` on every thread until it is time to stop.
int loop(int threads, const std::function<void(int thread)>& call) {
  gWaiting = threads;
  std::vector<std::thread> all;
  for (int i = 0; i < threads; ++i) {
    all.emplace_back([&call, i] {
      for (bool first = true; !gStop; first = false) {
        call(i);
        ++gCalls;
        if (first && --gWaiting == 0) {
          puts("ready");
          fflush(stdout);
        }
      }
    });
  }
  for (std::thread& thread : all) thread.join();
  printf("%ld calls\n", gCalls.load());
  return 0;
}

PersistableBundle child(const PersistableBundle& bundle, const char* key) {
  PersistableBundle found;
  if (!bundle.getPersistableBundle(String16(key), &found)) fail(std::string("no ") + key);
  return found;
}

void callEverything(int pid) {
  const auto collector = android::interface_cast<IDiagnosticsCollectorService>(
      binder(IDiagnosticsCollectorService::kServiceName));
  const auto notifier = android::interface_cast<IDiagnosticsNotificationService>(
      binder(IDiagnosticsNotificationService::kServiceName));
  PersistableBundle process;
  PersistableBundle all;
  PersistableBundle system;
  auto status = collector->getApplicationStateDataForProcess(pid, String16("test"), &process);
  if (status.isOk()) status = collector->getAllAvailableApplicationStateData(&all);
  if (status.isOk()) status = collector->getSystemContextData(&system);
  if (status.isOk()) {
    status = notifier->notifySystemEvent(IDiagnosticsNotificationEventCode::APPLICATION_CRASHED, {});
  }
  if (!status.isOk()) fail(status.toString8().string());
  if (child(process, "ApplicationStateData").empty()) fail("no states");
  child(all, std::to_string(pid).c_str());
  child(system, "SystemContextData");
}

int good(int threads, int pid) {
  signal(SIGTERM, [](int) { gStop = true; });
  return loop(threads, [pid](int) { callEverything(pid); });
}

int greedy(int threads) {
  return loop(threads, [](int) {
    PersistableBundle all;
    android::interface_cast<IDiagnosticsCollectorService>(binder(IDiagnosticsCollectorService::kServiceName))
        ->getAllAvailableApplicationStateData(&all);
  });
}

// A request of random words, half of them behind a token that fits.
void sendGarbage(std::mt19937& random) {
  const bool toCollector = random() % 2 == 0;
  Parcel request;
  if (random() % 2 == 0) {
    request.writeInterfaceToken(toCollector ? IDiagnosticsCollectorService::descriptor
                                            : IDiagnosticsNotificationService::descriptor);
  }
  for (size_t words = random() % 64; words > 0; --words) {
    request.writeInt32(static_cast<int32_t>(random() % 4 == 0 ? random() : random() % 4));
  }
  Parcel reply;
  const auto service = binder(toCollector ? IDiagnosticsCollectorService::kServiceName
                                          : IDiagnosticsNotificationService::kServiceName);
  service->transact(random() % 8 == 0 ? random() : random() % 5, request, &reply,
                    random() % 4 == 0 ? IBinder::FLAG_ONEWAY : 0);
}

int garbage(int threads, unsigned seed) {
  std::vector<std::mt19937> randoms;
  for (int i = 0; i < threads; ++i) randoms.emplace_back(seed + i);
  return loop(threads, [&randoms](int thread) { sendGarbage(randoms[thread]); });
}

int publish(int pid, int perSecond) {
  libstatsd::StatsEventWriter writer;
  const std::chrono::nanoseconds pause(1'000'000'000 / perSecond);
  auto next = std::chrono::steady_clock::now();
  return loop(1, [&](int) {
    writer.publishApplicationState(pid, "key " + std::to_string(gCalls % 20), std::to_string(gCalls));
    std::this_thread::sleep_until(next += pause);
  });
}

}  // namespace

int main(int argc, char** argv) {
  const std::string mode = argc > 2 ? argv[1] : "";
  const int first = argc > 2 ? atoi(argv[2]) : 0;
  const int second = argc > 3 ? atoi(argv[3]) : 1;
  if (mode == "good") return good(first, second);
  if (mode == "greedy") return greedy(first);
  if (mode == "garbage") return garbage(first, static_cast<unsigned>(second));
  if (mode == "publish") return publish(first, second);
  fprintf(stderr, "usage: test_client good|greedy|garbage|publish ...\n");
  return 2;
}
