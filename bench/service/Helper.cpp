// The other processes of the benchmarks.
//
//   service_bench_helper echo          serves two binder services: "echo" answers like the service, with
//   bundles
//                                      that were made before; "bytes" replies with as many bytes as the
//                                      request asks for
//   service_bench_helper histories     serves as the daemon does, but all seven histories are full from the
//   start,
//                                      and no periodic work changes them
//   service_bench_helper poll N        fills seven histories and polls them N times more
//   service_bench_helper publish N     publishes N states a second
//   service_bench_helper churn WHAT    keeps the machine busy: memory, disk or cores

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <binder/Binder.h>
#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/Parcel.h>
#include <binder/ProcessState.h>
#include <statsd/StatsEventWriter.h>

#include <android/log.h>
#include <osutils/ServiceHost.h>

#include "Data.h"
#include "collectors/Histories.h"
#include "configuration/ConfigurationChain.h"
#include "service/BundlePacking.h"
#include "service/DiagnosticsCollectorService.h"
#include "service/DiagnosticsNotificationService.h"

namespace {

// Answers with a bundle made before, so a call costs only the request, the parcel and the carrier.
class Echo : public android::BBinder {
 public:
  Echo() {
    Torv::OS::Diagnostics::StringMap states;
    for (int key = 0; key < servicebench::kKeys; ++key)
      states[servicebench::keyName(key)] = servicebench::kValue;
    Torv::OS::Diagnostics::ProcessStates all;
    for (int i = 0; i < servicebench::kProcesses; ++i) all[servicebench::kFirstPid + i] = states;
    Torv::OS::Diagnostics::packProcessEntriesToBundle(servicebench::kFirstPid, states, &mOne);
    Torv::OS::Diagnostics::packAllProcessStatesToBundle(all, &mAll);
  }

 protected:
  android::status_t onTransact(uint32_t code, const android::Parcel& /*data*/, android::Parcel* reply,
                               uint32_t /*flags*/) override {
    reply->writeInt32(0);  // a status without exception
    return reply->writeParcelable(code == 1 ? mOne : mAll);
  }

 private:
  android::os::PersistableBundle mOne;
  android::os::PersistableBundle mAll;
};

class Bytes : public android::BBinder {
 protected:
  android::status_t onTransact(uint32_t /*code*/, const android::Parcel& data, android::Parcel* reply,
                               uint32_t /*flags*/) override {
    int32_t size = 0;
    if (const auto read = data.readInt32(&size); read != android::OK) return read;
    return reply->write(mBytes.data(), std::min(mBytes.size(), static_cast<size_t>(size)));
  }

 private:
  const std::vector<char> mBytes = std::vector<char>(1 << 20, 'e');
};

int echo() {
  const auto manager = android::defaultServiceManager();
  if (manager->addService(android::String16("bytes"), new Bytes) != android::OK) return 1;
  if (manager->addService(android::String16("echo"), new Echo) != android::OK) return 1;
  android::ProcessState::self()->startThreadPool();
  android::IPCThreadState::self()->joinThreadPool();
  return 0;
}

int serveHistories() {
  using namespace Torv::OS::Diagnostics;
  const auto configuration =
      Torv::buildConfigurationChain();  // before Histories, which takes its device root away
  bench::Histories histories;
  // A signal will end this process, so nobody removes the directory later. The histories no longer need it.
  std::filesystem::remove_all(histories.device.path());
  const auto handler = std::make_shared<DiagnosticsCollectorServiceHandler>(
      ApplicationStateManager::makeDefaultManager(),
      std::make_unique<SystemContextManager>(configuration, std::move(histories.manager)));
  const android::sp<android::IBinder> collector = new DiagnosticsCollectorService(handler);
  const android::sp<android::IBinder> notification =
      new DiagnosticsNotificationService(std::vector<std::shared_ptr<Observer>>{handler});
  Torv::OS::ServiceHost host({{DiagnosticsCollectorService::kServiceName, collector},
                              {DiagnosticsNotificationService::kServiceName, notification}});
  host.startThreadPool();
  return 0;
}

int poll(int times) {
  const bench::Histories histories;
  for (int i = 0; i < times; ++i) histories.manager->pollCollectors();
  return 0;
}

int publish(int perSecond) {
  libstatsd::StatsEventWriter writer;
  const std::chrono::nanoseconds pause(1'000'000'000 / perSecond);
  auto next = std::chrono::steady_clock::now();
  using namespace servicebench;
  for (int i = 0;; i = (i + 1) % (kProcesses * kKeys)) {
    writer.publishApplicationState(kFirstPid + i / kKeys, keyName(i % kKeys), kValue);
    std::this_thread::sleep_until(next += pause);
  }
}

[[noreturn]] void churnMemory() {
  constexpr size_t kBytes = size_t{128} << 20;
  while (true) {
    void* block = mmap(nullptr, kBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (block == MAP_FAILED) continue;
    memset(block, 1, kBytes);
    munmap(block, kBytes);
  }
}

[[noreturn]] void churnDisk() {
  const std::string path = "/tmp/service-bench-churn-" + std::to_string(getpid());
  const int file = open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  unlink(path.c_str());
  const std::vector<char> block(1 << 20, 'x');
  for (off_t at = 0;; at = (at + 1) % 64) {
    if (pwrite(file, block.data(), block.size(), at << 20) < 0 || (at % 16 == 0 && fsync(file) != 0)) {
      perror("churn");
      exit(1);
    }
  }
}

[[noreturn]] void churnCores() {
  const auto spin = [] {
    for (std::atomic<unsigned> turns = 0;; ++turns) continue;
  };
  std::thread(spin).detach();
  spin();
  abort();
}

}  // namespace

int main(int argc, char** argv) {
  __android_log_set_minimum_priority(ANDROID_LOG_WARN);
  const std::string mode = argc > 1 ? argv[1] : "";
  const std::string what = argc > 2 ? argv[2] : "";
  if (mode == "echo") return echo();
  if (mode == "histories") return serveHistories();
  if (mode == "poll") return poll(std::stoi(what));
  if (mode == "publish") return publish(std::stoi(what));
  if (what == "memory") churnMemory();
  if (what == "disk") churnDisk();
  if (what == "cores") churnCores();
  return 2;
}
