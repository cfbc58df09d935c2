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

#include <CLI/CLI.hpp>

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
  randoms.reserve(threads);
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
  CLI::App app("Clients of every kind", "test_client");
  app.require_subcommand(1);
  int threads = 1;
  int pid = 0;
  int number = 1;
  int exitCode = 0;
  const auto add = [&](const char* name, const std::function<int()>& run) {
    return app.add_subcommand(name)->callback([&exitCode, run] { exitCode = run(); });
  };
  CLI::App* const goodClient = add("good", [&] { return good(threads, pid); });
  goodClient->add_option("THREADS", threads)->required();
  goodClient->add_option("PID", pid)->required();
  add("greedy", [&] { return greedy(threads); })->add_option("THREADS", threads)->required();
  CLI::App* const garbageClient =
      add("garbage", [&] { return garbage(threads, static_cast<unsigned>(number)); });
  garbageClient->add_option("THREADS", threads)->required();
  garbageClient->add_option("SEED", number)->required();
  CLI::App* const publisher = add("publish", [&] { return publish(pid, number); });
  publisher->add_option("PID", pid)->required();
  publisher->add_option("COUNT", number)->required();
  CLI11_PARSE(app, argc, argv);
  return exitCode;
}
