// Transactions beside the same bytes over bare blocking stream sockets: client and server are two processes
// on one core, where the times repeat.

#include "parcel/ParcelHeader.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>

#include "support/Compare.h"
#include "support/Limits.h"

namespace {

using android::Parcel;
using android::sp;
using android::String16;

constexpr char kService[] = "bench";
constexpr size_t kRequest = 100;
constexpr int kIterations = 21;
constexpr int kThreads = 16;

[[noreturn]] void die(const char* what) {
  perror(what);
  exit(1);
}

// Code N answers with N bytes.
class Sized final : public android::BBinder {
  android::status_t onTransact(uint32_t code, const Parcel& /*data*/, Parcel* reply,
                               uint32_t /*flags*/) override {
    return reply->writeInplace(code) != nullptr ? android::OK : android::NO_MEMORY;
  }
};

pid_t startProcess(const std::function<void()>& body) {
  const pid_t pid = fork();
  if (pid < 0) die("fork");
  if (pid != 0) return pid;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  body();
  _exit(0);
}

void serveBinder() {
  if (android::defaultServiceManager()->addService(String16(kService), new Sized()) != android::OK) _exit(1);
  android::ProcessState::self()->startThreadPool();
  android::IPCThreadState::self()->joinThreadPool();
}

bool readFully(int fd, std::vector<char>& buffer, size_t size) {
  for (size_t got = 0; got < size;) {
    const ssize_t part = read(fd, buffer.data() + got, size - got);
    if (part <= 0) return false;
    got += static_cast<size_t>(part);
  }
  return true;
}

bool writeFully(int fd, const std::vector<char>& buffer, size_t size) {
  for (size_t sent = 0; sent < size;) {
    const ssize_t part = write(fd, buffer.data() + sent, size - sent);
    if (part <= 0) return false;
    sent += static_cast<size_t>(part);
  }
  return true;
}

sockaddr_un bareAddress(const std::string& directory) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  snprintf(address.sun_path, sizeof(address.sun_path), "%s/bare", directory.c_str());
  return address;
}

// A thread for each connection. A connection begins with the size of its replies.
void serveBare(int listener) {
  for (;;) {
    const int fd = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) _exit(1);
    std::thread([fd] {
      std::vector<char> buffer(sizeof(size_t));
      size_t size = 0;
      if (!readFully(fd, buffer, sizeof(size))) _exit(1);
      std::copy_n(buffer.data(), sizeof(size), reinterpret_cast<char*>(&size));
      buffer.resize(std::max(size, kRequest));
      while (readFully(fd, buffer, kRequest) && writeFully(fd, buffer, size)) {
      }
      close(fd);
    }).detach();
  }
}

int connectBare(const std::string& directory, size_t replySize) {
  const sockaddr_un address = bareAddress(directory);
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) die("connect");
  if (write(fd, &replySize, sizeof(replySize)) != sizeof(replySize)) die("write");
  return fd;
}

std::string gDirectory;
sp<android::IBinder> gService;

void callBinder(size_t replySize, int calls) {
  for (int i = 0; i < calls; ++i) {
    Parcel data;
    Parcel reply;
    data.writeInplace(kRequest);
    if (gService->transact(static_cast<uint32_t>(replySize), data, &reply) != android::OK) die("transact");
    if (reply.dataSize() != replySize) die("reply");
  }
}

void callBare(int fd, size_t replySize, int calls) {
  std::vector<char> buffer(std::max(replySize, kRequest));
  for (int i = 0; i < calls; ++i) {
    if (!writeFully(fd, buffer, kRequest) || !readFully(fd, buffer, replySize)) die("bare server");
  }
}

void roundTrip(benchmark::State& state, size_t replySize, double atMost) {
  const int fd = connectBare(gDirectory, replySize);
  constexpr int kCalls = 500;
  callBinder(replySize, kCalls);
  callBare(fd, replySize, kCalls);
  bench::compare(
      state, atMost, [&] { callBinder(replySize, kCalls); }, [&] { callBare(fd, replySize, kCalls); },
      bench::Clock::Wall);
  close(fd);
}

void roundTrip4KiB(benchmark::State& state) {
  roundTrip(state, 4096, 1.3);
}

void roundTrip64KiB(benchmark::State& state) {
  roundTrip(state, 65536, 1.25);
}

void inThreads(const std::function<void(int)>& body) {
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int i = 0; i < kThreads; ++i) threads.emplace_back(body, i);
  for (auto& thread : threads) thread.join();
}

// 0.8 of the throughput is 1 / 0.8 of the time.
void sixteenThreads(benchmark::State& state) {
  constexpr size_t kReply = 4096;
  constexpr int kCalls = 250;
  std::vector<int> fds(kThreads);
  for (int& fd : fds) fd = connectBare(gDirectory, kReply);
  const auto ours = [&] { inThreads([&](int) { callBinder(kReply, kCalls); }); };
  const auto bare = [&] { inThreads([&](int i) { callBare(fds[static_cast<size_t>(i)], kReply, kCalls); }); };
  ours();
  bare();
  bench::compare(state, 1 / 0.8, ours, bare, bench::Clock::Wall);
  for (const int fd : fds) close(fd);
}

}  // namespace

int main(int argc, char** argv) {
  bench::pinToCore(0);
  char directory[] = "/tmp/binder-bench.XXXXXX";
  if (mkdtemp(directory) == nullptr) die("mkdtemp");
  gDirectory = directory;
  setenv("TORV_RUNTIME_DIR", directory, 1);
  const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const sockaddr_un address = bareAddress(gDirectory);
  if (bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) die("bind");
  if (listen(listener, 128) != 0) die("listen");
  const pid_t bareServer = startProcess([listener] { serveBare(listener); });
  const pid_t binderServer = startProcess(serveBinder);
  gService = android::defaultServiceManager()->getService(String16(kService));
  if (gService == nullptr) die("getService");

  bench::registerComparison("round trip, 100 B to 4 KiB, 500 calls", kIterations, roundTrip4KiB);
  bench::registerComparison("round trip, 100 B to 64 KiB, 500 calls", kIterations, roundTrip64KiB);
  bench::registerComparison("16 threads, 100 B to 4 KiB, 250 calls each", kIterations, sixteenThreads);
  const int status = bench::runAll(argc, argv);

  for (const pid_t server : {bareServer, binderServer}) {
    kill(server, SIGKILL);
    waitpid(server, nullptr, 0);
  }
  std::filesystem::remove_all(gDirectory);
  return status;
}
