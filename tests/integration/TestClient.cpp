// Clients of every kind, for tests to start, stop and kill.
//
//   test_client good THREADS PID      calls all there is to call until SIGTERM comes; fails when an
//                                     answer is not what the process PID has published
//   test_client greedy THREADS        asks for all processes, for ever
//   test_client garbage THREADS SEED  sends requests of random bytes to both services, for ever
//
// Prints "ready" when every thread has had its first answer.

#include <atomic>
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
void loop(int threads, const std::function<void(int thread)>& call) {
  gWaiting = threads;
  std::vector<std::thread> all;
  all.reserve(threads);
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

void askForAll() {
  PersistableBundle all;
  android::interface_cast<IDiagnosticsCollectorService>(binder(IDiagnosticsCollectorService::kServiceName))
      ->getAllAvailableApplicationStateData(&all);
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

}  // namespace

int main(int argc, char** argv) {
  const std::string role = argv[1];
  const int threads = atoi(argv[2]);
  const int number = argc > 3 ? atoi(argv[3]) : 0;
  if (role == "good") {
    signal(SIGTERM, [](int) { gStop = true; });
    loop(threads, [number](int) { callEverything(number); });
  } else if (role == "greedy") {
    loop(threads, [](int) { askForAll(); });
  } else {
    loop(threads, [number](int thread) {
      thread_local std::mt19937 random(number + thread);
      sendGarbage(random);
    });
  }
  return 0;
}
