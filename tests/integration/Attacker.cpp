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
using libstatsd::StatsEventWriter;
using platform::binder::FrameHeader;
using platform::binder::FrameKind;
using platform::binder::kMaxPayload;

constexpr uint32_t kAllStates = 2;
constexpr uint32_t kNotify = 1;

std::string header(size_t size, uint32_t code, uint32_t flags) {
  const FrameHeader header{static_cast<uint32_t>(FrameKind::Transaction), static_cast<uint32_t>(size), code,
                           flags};
  return {reinterpret_cast<const char*>(&header), sizeof(header)};
}

// The frame of a request for the states of all processes.
std::string request() {
  android::Parcel parcel;
  parcel.writeInterfaceToken(IDiagnosticsCollectorService::descriptor);
  return header(parcel.dataSize(), kAllStates, 0) +
         std::string(reinterpret_cast<const char*>(parcel.data()), parcel.dataSize());
}

// The frame of a one-way event, with an empty bundle.
std::string event() {
  android::Parcel parcel;
  parcel.writeInterfaceToken(IDiagnosticsNotificationService::descriptor);
  for (const int32_t word : {0, 1, 0}) parcel.writeInt32(word);
  return header(parcel.dataSize(), kNotify, android::IBinder::FLAG_ONEWAY) +
         std::string(reinterpret_cast<const char*>(parcel.data()), parcel.dataSize());
}

unique_fd connectTo(const char* service) {
  auto socket = platform::binder::connectTo(*platform::binder::addressOf(service));
  return socket.ok() ? std::move(*socket) : unique_fd();
}
unique_fd connectToCollector() {
  return connectTo(IDiagnosticsCollectorService::kServiceName);
}
unique_fd connectToNotifier() {
  return connectTo(IDiagnosticsNotificationService::kServiceName);
}

bool sendAll(const unique_fd& socket, const std::string& bytes, int flags = 0) {
  return send(socket.get(), bytes.data(), bytes.size(), flags | MSG_NOSIGNAL) ==
         static_cast<ssize_t>(bytes.size());
}

void ready() {
  puts("ready");
  fflush(stdout);
}

void onThreads(int count, void (*body)()) {
  std::vector<std::thread> threads;
  for (int i = 0; i < count; ++i) threads.emplace_back(body);
  ready();
  for (std::thread& thread : threads) thread.join();
}

void nothing() {
  ready();
  pause();
}

// Keeps `count` connections that have sent `bytes`, and replaces the oldest for ever.
void holdConnections(size_t count, const std::string& bytes) {
  std::deque<unique_fd> held;
  for (size_t made = 0;; ++made) {
    if (made == count) ready();
    if (held.size() == count) held.pop_front();
    held.push_back(connectToCollector());
    sendAll(held.back(), bytes, MSG_DONTWAIT);
  }
}

void silentConnections() {
  holdConnections(4000, "");
}

// Many threads that try to connect without ever waiting.
void connectSpin() {
  onThreads(8, [] {
    const auto address = platform::binder::addressOf(IDiagnosticsCollectorService::kServiceName);
    const auto path = platform::SocketPath::of(address->directory, address->file);
    std::deque<unique_fd> held;
    for (;;) {
      unique_fd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
      if (connect(fd.get(), path->address(), path->size()) != 0) continue;
      held.push_back(std::move(fd));
      if (held.size() > 1000) held.pop_front();
    }
  });
}

void halfFrames() {
  holdConnections(1000, header(kMaxPayload, kAllStates, 0) + "half");
}

void slowReaders() {
  std::string requests;
  for (int i = 0; i < 20; ++i) requests += request();
  holdConnections(1000, requests);
}

// On as many connections as there are to be had, requests without a pause. The replies are read.
void pipelinedCalls() {
  std::vector<unique_fd> sockets(250);
  std::vector<char> sink(1 << 20);
  const std::string one = request();
  for (bool first = true; true; first = false) {
    for (unique_fd& socket : sockets) {
      if (!socket.ok()) socket = connectToCollector();
      while (sendAll(socket, one, MSG_DONTWAIT)) {
      }
      if (recv(socket.get(), sink.data(), sink.size(), MSG_DONTWAIT) == 0) socket.reset();
    }
    if (first) ready();
  }
}

void oneWayFlood() {
  onThreads(8, [] {
    std::string events;
    for (int i = 0; i < 64; ++i) events += event();
    for (unique_fd socket;;) {
      if (!sendAll(socket, events)) socket = connectToNotifier();
    }
  });
}

void connectSendClose() {
  onThreads(8, [] {
    for (const std::string one = event();;) sendAll(connectToNotifier(), one);
  });
}

void malformedFrames() {
  onThreads(8, [] {
    for (const std::string garbage(100, 'G');;) sendAll(connectToCollector(), garbage);
  });
}

// Callers that are stopped for a while and then killed in mid-call.
void killedCallers() {
  std::deque<pid_t> stopped;
  for (int made = 0;; ++made) {
    const pid_t child = fork();
    if (child == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      const unique_fd socket = connectToCollector();
      for (const std::string one = request(); sendAll(socket, one);) {
      }
      _exit(0);
    }
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

// Publishes without end. `publish` gets the number of the atom.
template <typename Publish>
void flood(Publish publish) {
  StatsEventWriter writer;
  ready();
  for (long i = 0;; ++i) publish(writer, i);
}

void uniqueKeys() {
  flood([pid = getpid()](StatsEventWriter& writer, long i) {
    const std::string text = std::to_string(100'000'000'000'000 + i);
    writer.publishApplicationState(pid, text, text);
  });
}

void inventedPids() {
  flood([](StatsEventWriter& writer, long i) {
    writer.publishApplicationState(2'000'000 + static_cast<int>(i % 1'200'000), "key", "value");
  });
}

// 520 kB of one process: more than a reply can carry.
void largeProcess() {
  flood([pid = getpid(), value = std::string(3900, 'x')](StatsEventWriter& writer, long i) {
    writer.publishApplicationState(pid, std::to_string(i % 134), value);
  });
}

void atomsOfOneKey() {
  flood([pid = getpid(), value = std::string(3900, 'x')](StatsEventWriter& writer, long) {
    writer.publishApplicationState(pid, "key", value);
  });
}

using Query = android::binder::Status (IDiagnosticsCollectorService::*)(android::os::PersistableBundle*);

template <Query query>
void askForEver() {
  const auto collector =
      android::interface_cast<IDiagnosticsCollectorService>(android::defaultServiceManager()->checkService(
          android::String16(IDiagnosticsCollectorService::kServiceName)));
  for (;;) {
    android::os::PersistableBundle reply;
    ((*collector).*query)(&reply);
  }
}

void wholeTableCalls() {
  onThreads(16, askForEver<&IDiagnosticsCollectorService::getAllAvailableApplicationStateData>);
}

void contextCalls() {
  onThreads(20, askForEver<&IDiagnosticsCollectorService::getSystemContextData>);
}

// Locks every lock file of the service that it can open, and prints their names.
void heldLocks() {
  for (const auto& entry : std::filesystem::directory_iterator(platform::runtimeDirectory())) {
    const std::string name = entry.path().filename();
    if (!name.ends_with("lock")) continue;
    const int fd = open(entry.path().c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd >= 0 && flock(fd, LOCK_EX | LOCK_NB) == 0) printf("holds %s\n", name.c_str());
  }
  ready();
  pause();
}

struct Attack {
  const char* name;
  void (*run)();
};
constexpr Attack kAttacks[] = {
    {"nothing", nothing},
    {"silentConnections", silentConnections},
    {"connectSpin", connectSpin},
    {"halfFrames", halfFrames},
    {"slowReaders", slowReaders},
    {"pipelinedCalls", pipelinedCalls},
    {"oneWayFlood", oneWayFlood},
    {"connectSendClose", connectSendClose},
    {"malformedFrames", malformedFrames},
    {"killedCallers", killedCallers},
    {"uniqueKeys", uniqueKeys},
    {"inventedPids", inventedPids},
    {"largeProcess", largeProcess},
    {"atomsOfOneKey", atomsOfOneKey},
    {"wholeTableCalls", wholeTableCalls},
    {"contextCalls", contextCalls},
    {"heldLocks", heldLocks},
};

}  // namespace

int main(int argc, char** argv) {
  rlimit descriptors{};
  getrlimit(RLIMIT_NOFILE, &descriptors);
  descriptors.rlim_cur = descriptors.rlim_max;
  setrlimit(RLIMIT_NOFILE, &descriptors);
  for (const Attack& attack : kAttacks) {
    if (argc == 2 && strcmp(argv[1], attack.name) == 0) attack.run();
  }
  return 2;
}
