#include "Calls.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <string>

#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <statsd/StatsEventWriter.h>
#include <support/Compare.h>

namespace servicebench {
namespace {

using android::OK;
using android::Parcel;
using android::String16;
using android::os::PersistableBundle;
using fixture::IDiagnosticsCollectorService;

constexpr int kOnePid = kFirstPid;

[[noreturn]] void fail(const char* what, int status) {
  fprintf(stderr, "service_bench: %s: %d\n", what, status);
  exit(1);
}

android::status_t transact(const android::sp<android::IBinder>& service, uint32_t code, Parcel* reply) {
  Parcel request;
  request.writeInterfaceToken(IDiagnosticsCollectorService::descriptor);
  request.writeInt32(kOnePid);
  request.writeString16(String16("reporter"));
  return service->transact(code, request, reply);
}

}  // namespace

void useOneCore() {
  bench::pinToCore(static_cast<int>(sysconf(_SC_NPROCESSORS_ONLN)) - 1);
}

void useAllCores() {
  cpu_set_t all;
  memset(&all, 0xff, sizeof(all));
  if (sched_setaffinity(0, sizeof(all), &all) != 0) fail("sched_setaffinity", errno);
}

void publishStates(int processes, int updates) {
  libstatsd::StatsEventWriter writer;
  for (int i = 0; i < updates * processes * kKeys; ++i) {
    const int pid = kFirstPid + i / kKeys % processes;
    // The writer gives up after 20 ms. A service under valgrind can take longer.
    auto result = libstatsd::WriteResult::QueueFull;
    for (int attempt = 0; attempt < 100 && result == libstatsd::WriteResult::QueueFull; ++attempt) {
      result = writer.publishApplicationState(pid, keyName(i % kKeys), kValue);
    }
    if (result != libstatsd::WriteResult::Sent) fail("publish", static_cast<int>(result));
  }
}

std::unique_ptr<fixture::Process> startHelper(const fixture::Daemon& daemon,
                                              std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), fixture::staged("service_bench_helper"));
  fixture::ProcessOptions options = daemon.client(fixture::serviceUid());
  options.output = daemon.dir().path("helper.log");
  return std::make_unique<fixture::Process>(arguments, options);
}

ServiceAndEcho::ServiceAndEcho() {
  mDaemon.start();
  publishStates();
  {
    const test::ScopedEnv runtime("TORV_RUNTIME_DIR", mEchoRuntime.path());
    mEcho = startHelper(mDaemon, {"echo"});
  }
  if (!fixture::eventually([this] { return echo() != nullptr; })) fail("no echo", 0);
}

android::sp<android::IBinder> ServiceAndEcho::service() {
  return fixture::Daemon::binder(IDiagnosticsCollectorService::kServiceName);
}

android::sp<android::IBinder> ServiceAndEcho::ofHelper(const char* name) const {
  const test::ScopedEnv runtime("TORV_RUNTIME_DIR", mEchoRuntime.path());
  return fixture::Daemon::binder(name);
}

Call Call::oneProcess(const android::sp<android::IBinder>& service) {
  const auto proxy = android::interface_cast<IDiagnosticsCollectorService>(service);
  return Call([proxy] {
    PersistableBundle process;
    const auto status = proxy->getApplicationStateDataForProcess(kOnePid, String16("reporter"), &process);
    return status.isOk() && !process.empty() ? OK : android::FAILED_TRANSACTION;
  });
}

Call Call::allProcesses(const android::sp<android::IBinder>& service) {
  const auto proxy = android::interface_cast<IDiagnosticsCollectorService>(service);
  return Call([proxy] {
    PersistableBundle all;
    const auto status = proxy->getAllAvailableApplicationStateData(&all);
    return status.isOk() && all.size() == kProcesses ? OK : android::FAILED_TRANSACTION;
  });
}

Call Call::systemContext(const android::sp<android::IBinder>& service) {
  const auto proxy = android::interface_cast<IDiagnosticsCollectorService>(service);
  return Call([proxy] {
    PersistableBundle context;
    const auto status = proxy->getSystemContextData(&context);
    return status.isOk() && !context.empty() ? OK : android::FAILED_TRANSACTION;
  });
}

Call Call::unread(uint32_t code) {
  const auto binder = fixture::Daemon::binder(IDiagnosticsCollectorService::kServiceName);
  return Call([binder, code] {
    Parcel reply;
    return transact(binder, code, &reply);
  });
}

Call Call::plainBytes(const android::sp<android::IBinder>& bytes, size_t size) {
  return Call([bytes, size] {
    Parcel request;
    Parcel reply;
    request.writeInt32(static_cast<int32_t>(size));
    // Makes the request as long as a request to the service.
    request.writeInterfaceToken(IDiagnosticsCollectorService::descriptor);
    return bytes->transact(1, request, &reply);
  });
}

double Call::timeNs() const {
  const double start = nowNs();
  const android::status_t status = mCall();
  const double end = nowNs();
  if (status != OK) fail("a call failed", status);
  return end - start;
}

size_t replyBytes(uint32_t code) {
  Parcel reply;
  const auto binder = fixture::Daemon::binder(IDiagnosticsCollectorService::kServiceName);
  if (const auto status = transact(binder, code, &reply); status != OK) fail("a call failed", status);
  return reply.dataSize();
}

double percentile(std::vector<double> times, double share) {
  const auto at = static_cast<size_t>(share * static_cast<double>(times.size() - 1));
  std::nth_element(times.begin(), times.begin() + static_cast<std::ptrdiff_t>(at), times.end());
  return times[at];
}

double nowNs() {
  timespec time{};
  clock_gettime(CLOCK_MONOTONIC, &time);
  return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_nsec);
}

std::optional<int> runAsServiceUser(const std::string& program, int argc, char** argv) {
  for (const char* needed : {"diagctl", "diagnostics_collector_service", "service_bench_helper"})
    fixture::staged(needed);
  if (getuid() != 0) return std::nullopt;
  std::vector<std::string> arguments(argv, argv + argc);
  arguments[0] = fixture::staged(program);
  fixture::ProcessOptions options;
  options.output = "";  // this program's own
  fixture::Process process(arguments, options);
  const int status = process.wait(std::chrono::hours(1)).value_or(-1);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}

}  // namespace servicebench
