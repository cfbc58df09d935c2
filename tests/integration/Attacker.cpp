// attacker NAME: one of the attacks below, at full speed and without end, from another uid than the
// service's. It prints "ready" when the attack is in place. Another attack is one more function and one more
// entry of kAttacks.

#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <deque>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <binder/IServiceManager.h>
#include <statsd/StatsEventWriter.h>

#include "Frame.h"
#include "ServiceAddress.h"
#include "dev/kerno/internal/diagnostics/IDiagnosticsCollectorService.h"
#include "dev/kerno/internal/diagnostics/IDiagnosticsNotificationService.h"
#include "runtime/RuntimeDirectory.h"
#include "runtime/SocketPath.h"

namespace {

using android::base::unique_fd;
using dev::kerno::internal::diagnostics::IDiagnosticsCollectorService;
using dev::kerno::internal::diagnostics::IDiagnosticsNotificationService;
using platform::binder::FrameHeader;
using platform::binder::FrameKind;
using platform::binder::kMaxPayload;

constexpr auto kCollector = IDiagnosticsCollectorService::kServiceName;
constexpr auto kNotifier = IDiagnosticsNotificationService::kServiceName;

std::string header(size_t size, uint32_t code, uint32_t flags) {
  const FrameHeader header{static_cast<uint32_t>(FrameKind::Transaction), static_cast<uint32_t>(size), code,
                           flags};
  return {reinterpret_cast<const char*>(&header), sizeof(header)};
}

std::string frame(const android::String16& token, std::initializer_list<int32_t> words, uint32_t code,
                  uint32_t flags) {
  android::Parcel parcel;
  parcel.writeInterfaceToken(token);
  for (const int32_t word : words) parcel.writeInt32(word);
  return header(parcel.dataSize(), code, flags) +
         std::string(reinterpret_cast<const char*>(parcel.data()), parcel.dataSize());
}

constexpr uint32_t kAllStates = IDiagnosticsCollectorService::kGetAllAvailableApplicationStateData;

std::string request() {
  return frame(IDiagnosticsCollectorService::descriptor, {}, kAllStates, 0);
}

// A one-way event, with an empty bundle.
std::string event() {
  return frame(IDiagnosticsNotificationService::descriptor, {0, 1, 0}, 1, android::IBinder::FLAG_ONEWAY);
}

unique_fd connectTo(const char* service) {
  auto socket = platform::binder::connectTo(*platform::binder::addressOf(service));
  return socket.ok() ? std::move(*socket) : unique_fd();
}

std::string repeated(const std::string& text, int times) {
  std::string all;
  while (times-- > 0) all += text;
  return all;
}

bool sendAll(const unique_fd& socket, const std::string& bytes, int flags = 0) {
  return send(socket.get(), bytes.data(), bytes.size(), flags | MSG_NOSIGNAL) ==
         static_cast<ssize_t>(bytes.size());
}

void ready() {
  puts("ready");
  fflush(stdout);
}

// Keeps `count` connections that have sent `bytes`, and replaces the oldest for ever.
void holdConnections(size_t count, const std::string& bytes) {
  std::deque<unique_fd> held;
  for (size_t made = 0;; ++made) {
    if (made == count) ready();
    if (held.size() == count) held.pop_front();
    held.push_back(connectTo(kCollector));
    sendAll(held.back(), bytes, MSG_DONTWAIT);
  }
}

// Tries to connect without ever waiting.
void connectSpin() {
  const auto address = platform::binder::addressOf(kCollector);
  const auto path = platform::SocketPath::of(address->directory, address->file);
  std::deque<unique_fd> held;
  for (;;) {
    unique_fd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (connect(fd.get(), path->address(), path->size()) != 0) continue;
    held.push_back(std::move(fd));
    if (held.size() > 1000) held.pop_front();
  }
}

// On as many connections as there are to be had, requests without a pause. The replies are read.
void pipelinedCalls() {
  std::vector<unique_fd> sockets(250);
  std::vector<char> sink(1 << 20);
  const std::string one = request();
  for (bool first = true; true; first = false) {
    for (unique_fd& socket : sockets) {
      if (!socket.ok()) socket = connectTo(kCollector);
      while (sendAll(socket, one, MSG_DONTWAIT)) {
      }
      if (recv(socket.get(), sink.data(), sink.size(), MSG_DONTWAIT) == 0) socket.reset();
    }
    if (first) ready();
  }
}

// Callers that are stopped for a while and then killed in mid-call.
void killedCallers() {
  std::deque<pid_t> stopped;
  int started[2];
  if (pipe2(started, O_CLOEXEC) != 0) _exit(1);
  for (int made = 0;; ++made) {
    const pid_t child = fork();
    if (child == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      if (write(started[1], "", 1) != 1) _exit(1);
      const unique_fd socket = connectTo(kCollector);
      for (const std::string one = request(); sendAll(socket, one);) {
      }
      _exit(0);
    }
    // A child that is stopped before it has asked to die with this process would stay for ever.
    char byte = 0;
    if (read(started[0], &byte, 1) != 1) _exit(1);
    usleep(500);
    kill(child, SIGSTOP);
    stopped.push_back(child);
    if (made == 100) ready();
    if (stopped.size() < 100) continue;
    kill(stopped.front(), SIGKILL);
    waitpid(stopped.front(), nullptr, 0);
    stopped.pop_front();
  }
}

void oneWayFlood() {
  for (unique_fd socket;;) {
    if (!sendAll(socket, repeated(event(), 64))) socket = connectTo(kNotifier);
  }
}

// Publishes states without end, with values of that size. Pids and keys take turns; a single pid is our own.
template <int pids, long keys, size_t valueBytes>
void flood() {
  const std::string value(valueBytes, 'x');
  libstatsd::StatsEventWriter writer;
  ready();
  for (long i = 0;; ++i) {
    const int pid = pids == 1 ? getpid() : 2'000'000 + static_cast<int>(i % pids);
    writer.publishApplicationState(pid, std::to_string(100'000'000'000'000 + i % keys), value);
  }
}

using Query = android::binder::Status (IDiagnosticsCollectorService::*)(android::os::PersistableBundle*);

template <Query query>
void ask() {
  const auto collector = android::interface_cast<IDiagnosticsCollectorService>(
      android::defaultServiceManager()->checkService(android::String16(kCollector)));
  for (;;) {
    android::os::PersistableBundle reply;
    ((*collector).*query)(&reply);
  }
}

// Locks every lock file of the service that it can open, and prints their names.
void heldLocks() {
  for (const auto& entry : std::filesystem::directory_iterator(platform::runtimeDirectory())) {
    const std::string name = entry.path().filename();
    if (!name.ends_with("lock")) continue;
    const int fd = open(entry.path().c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd >= 0 && flock(fd, LOCK_EX | LOCK_NB) == 0) printf("holds %s\n", name.c_str());
  }
}

struct Attack {
  const char* name;
  int threads;  // that run it; 0: the main thread does, and says "ready" itself unless it returns
  void (*run)();
};
constexpr Attack kAttacks[] = {
    {"nothing", 1, [] { pause(); }},
    {"silentConnections", 0, [] { holdConnections(4000, ""); }},
    {"connectSpin", 8, connectSpin},
    {"halfFrames", 0, [] { holdConnections(1000, header(kMaxPayload, kAllStates, 0) + "half"); }},
    {"slowReaders", 0, [] { holdConnections(1000, repeated(request(), 20)); }},
    {"pipelinedCalls", 0, pipelinedCalls},
    {"oneWayFlood", 8, oneWayFlood},
    {"connectSendClose", 8,
     [] {
       for (;;) sendAll(connectTo(kNotifier), event());
     }},
    {"malformedFrames", 8,
     [] {
       for (;;) sendAll(connectTo(kCollector), std::string(100, 'G'));
     }},
    {"killedCallers", 0, killedCallers},
    {"uniqueKeys", 0, flood<1, LONG_MAX, 15>},
    {"inventedPids", 0, flood<1'200'000, 1, 5>},
    {"largeProcess", 0, flood<1, 134, 3900>},  // 520 kB
    {"atomsOfOneKey", 0, flood<1, 1, 3900>},
    {"wholeTableCalls", 16, ask<&IDiagnosticsCollectorService::getAllAvailableApplicationStateData>},
    {"contextCalls", 20, ask<&IDiagnosticsCollectorService::getSystemContextData>},
    {"heldLocks", 0, heldLocks},
};

}  // namespace

int main(int argc, char** argv) {
  rlimit descriptors{};
  getrlimit(RLIMIT_NOFILE, &descriptors);
  descriptors.rlim_cur = descriptors.rlim_max;
  setrlimit(RLIMIT_NOFILE, &descriptors);
  for (const Attack& attack : kAttacks) {
    if (argc != 2 || strcmp(argv[1], attack.name) != 0) continue;
    if (attack.threads == 0) attack.run();
    for (int i = 0; i < attack.threads; ++i) std::thread(attack.run).detach();
    ready();
    pause();
  }
  return 2;
}
