#include "Calls.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <string>

#include <sched.h>

#include <statsd/StatsEventWriter.h>
#include <support/Compare.h>

namespace servicebench {
namespace {

using android::OK;
using android::Parcel;
using android::String16;
using android::os::PersistableBundle;
using fixture::IDiagnosticsCollectorService;

constexpr int kOnePid = kFirstPid + kProcesses / 2;

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

void publishStates() {
  libstatsd::StatsEventWriter writer;
  for (int i = 0; i < kProcesses * kKeys; ++i) {
    const auto result = writer.publishApplicationState(kFirstPid + i / kKeys, keyName(i % kKeys), kValue);
    if (result != libstatsd::WriteResult::Sent) fail("publish", static_cast<int>(result));
  }
}

Scene::Scene() {
  mDaemon.start();
  publishStates();
  mEcho = helper({"echo"});
  fixture::eventually([] { return fixture::Daemon::binder("echo") != nullptr; });
}

std::unique_ptr<fixture::Process> Scene::helper(std::vector<std::string> arguments) const {
  arguments.insert(arguments.begin(), fixture::staged("service_bench_helper"));
  fixture::ProcessOptions options = mDaemon.client(fixture::serviceUid());
  options.output = mDaemon.dir().path("helper.log");
  return std::make_unique<fixture::Process>(arguments, options);
}

Call Call::forOne(const char* service) {
  const auto proxy = android::interface_cast<IDiagnosticsCollectorService>(fixture::Daemon::binder(service));
  return Call([proxy] {
    PersistableBundle process;
    const auto status = proxy->getApplicationStateDataForProcess(kOnePid, String16("reporter"), &process);
    return status.isOk() && !process.empty() ? OK : android::FAILED_TRANSACTION;
  });
}

Call Call::forAll(const char* service) {
  const auto proxy = android::interface_cast<IDiagnosticsCollectorService>(fixture::Daemon::binder(service));
  return Call([proxy] {
    PersistableBundle all;
    const auto status = proxy->getAllAvailableApplicationStateData(&all);
    return status.isOk() && all.size() == kProcesses ? OK : android::FAILED_TRANSACTION;
  });
}

Call Call::unread(uint32_t code) {
  const auto binder = fixture::Daemon::binder(IDiagnosticsCollectorService::kServiceName);
  return Call([binder, code] {
    Parcel reply;
    return transact(binder, code, &reply);
  });
}

Call Call::forBytes(size_t size) {
  const auto binder = fixture::Daemon::binder("bytes");
  return Call([binder, size] {
    Parcel request;
    Parcel reply;
    request.writeInt32(static_cast<int32_t>(size));
    // As long as a request of the service.
    request.writeInterfaceToken(IDiagnosticsCollectorService::descriptor);
    return binder->transact(1, request, &reply);
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

int rounds(int full) {
  return getenv("DIAG_BENCH_ONCE") != nullptr ? 1 : full;
}

}  // namespace servicebench
