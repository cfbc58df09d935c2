// Receiving, decoding and storing atoms, against a loop over recvmmsg(2) that drops the same datagrams. All
// on one core.
#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>

#include <android-base/unique_fd.h>
#include <sched.h>
#include <sys/socket.h>

#include "StatsEventFormat.h"
#include "Statsd.h"
#include "runtime/SocketPath.h"
#include "support/Compare.h"
#include "support/Limits.h"

namespace {

using android::base::unique_fd;
using namespace libstatsd;

constexpr int kIterations = 21;
constexpr int kDatagrams = 5000;
constexpr ConfigKey kKey{1000, 57476};

std::string gDirectory;
Statsd* gStatsd = nullptr;

[[noreturn]] void die(const std::string& what) {
  fprintf(stderr, "statsd_bench: %s\n", what.c_str());
  exit(1);
}

// An atom of the size that applications publish: 56 bytes on the wire.
std::string stateDatagram() {
  using namespace std::string_literals;
  return "\x05\x34\x12\x80\x00\x59\x62\0\0\0\0tats\x07\x05\x01\0\xca\x9a\x3b\0\0\0\0\0\xba\xad\x01\0"
         "\0\xd2\x04\0\0\x02\x06\0\0\0screen\x02\x04\0\0\0home"s;
}

platform::SocketPath pathOf(const char* name) {
  auto path = platform::SocketPath::of(gDirectory, name);
  if (!path.ok()) die(path.error().message());
  return *std::move(path);
}

unique_fd connectTo(const char* name) {
  const platform::SocketPath path = pathOf(name);
  unique_fd fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (connect(fd.get(), path.address(), path.size()) != 0) die("connect");
  return fd;
}

void sendAll(const unique_fd& fd) {
  static const std::string datagram = stateDatagram();
  for (int i = 0; i < kDatagrams; i++) {
    if (send(fd.get(), datagram.data(), datagram.size(), 0) < 0) die("send");
  }
}

// The reference: a thread that only receives, in batches as large as ours.
class BareReceiver {
 public:
  BareReceiver() : mSocket(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    const platform::SocketPath path = pathOf("bare");
    if (bind(mSocket.get(), path.address(), path.size()) != 0) die("bind");
    mThread = std::thread([this] { run(); });
  }
  ~BareReceiver() {
    shutdown(mSocket.get(), SHUT_RD);
    mThread.join();
  }

  void awaitNext(int count) {
    while (mReceived < count) sched_yield();
    mReceived -= count;
  }

 private:
  void run() {
    constexpr size_t kBatch = 32;
    static std::array<std::array<char, kMaxDatagramBytes>, kBatch> buffers;
    std::array<iovec, kBatch> vectors{};
    std::array<mmsghdr, kBatch> messages{};
    for (size_t i = 0; i < kBatch; i++) {
      vectors[i] = {buffers[i].data(), buffers[i].size()};
      messages[i].msg_hdr.msg_iov = &vectors[i];
      messages[i].msg_hdr.msg_iovlen = 1;
    }
    for (;;) {
      const int received = recvmmsg(mSocket.get(), messages.data(), kBatch, MSG_WAITFORONE, nullptr);
      if (received < 0 || messages[0].msg_len == 0) return;
      mReceived += received;
    }
  }

  unique_fd mSocket;
  std::atomic<int> mReceived = 0;
  std::thread mThread;
};

void receiveRate(benchmark::State& state) {
  BareReceiver bareReceiver;
  const unique_fd atoms = connectTo("statsdw");
  const unique_fd bare = connectTo("bare");
  bench::compare(
      state, 1.3,
      [&] {
        sendAll(atoms);
        // The fetch first takes what is still in the socket, so every atom is decoded and stored when it
        // returns.
        benchmark::DoNotOptimize(gStatsd->fetch(kKey));
      },
      [&] {
        sendAll(bare);
        bareReceiver.awaitNext(kDatagrams);
      },
      bench::Clock::Wall);
  const StatsdCounters counters = gStatsd->status(getuid()).counters;
  if (counters.fetched != counters.received || counters.received == 0) die("atoms were lost");
}

}  // namespace

int main(int argc, char** argv) {
  bench::pinToCore(0);
  char directory[] = "/tmp/statsd-bench.XXXXXX";
  if (mkdtemp(directory) == nullptr) die("mkdtemp");
  gDirectory = directory;
  const auto started = Statsd::startIn(gDirectory);
  if (!started.ok()) die(started.error().message());
  gStatsd = *started;
  if (!gStatsd->configure(kKey, {110010}, {"AID_APP"})) die("configure");

  bench::registerComparison("5,000 atoms received, decoded and stored", kIterations, receiveRate);
  const int status = bench::runAll(argc, argv);
  std::filesystem::remove_all(gDirectory);
  return status;
}
