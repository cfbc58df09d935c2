// The other processes of the benchmarks.
//
//   service_bench_helper echo          two binder services: "echo" answers as the service would, with bundles
//                                      that stand ready; "bytes" with as many bytes as the first word asks
//                                      for
//   service_bench_helper publish N     publishes N states a second
//   service_bench_helper churn WHAT    keeps the machine busy: memory, disk or cores

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
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

#include "Data.h"
#include "service/BundlePacking.h"

namespace {

// The bundle stands ready: what is left is the request, the parcel and the carrier.
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
  const std::string mode = argc > 1 ? argv[1] : "";
  const std::string what = argc > 2 ? argv[2] : "";
  if (mode == "echo") return echo();
  if (mode == "publish") return publish(std::stoi(what));
  if (what == "memory") churnMemory();
  if (what == "disk") churnDisk();
  if (what == "cores") churnCores();
  return 2;
}
