#include "Statsd.h"

#include <cerrno>
#include <cstring>
#include <map>
#include <thread>
#include <utility>

#include <android/log.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include "base/Clock.h"
#include "runtime/HeapPolicy.h"
#include "runtime/RuntimeDirectory.h"

namespace libstatsd {

using android::base::unique_fd;
using Torv::Base::LockGuard;
using TurnGuard = Torv::Base::BasicLockGuard<TurnLock>;

namespace {

struct Instances {
  Torv::Base::Mutex mutex;
  std::map<std::string, std::unique_ptr<Statsd>> byDirectory GUARDED_BY(mutex);
};

// Never destroyed: other threads may fetch while the process ends.
Instances& instances() {
  static auto& all = *new Instances();
  return all;
}

void logAll(const std::vector<std::string>& notices) {
  for (const std::string& notice : notices) {
    __android_log_print(ANDROID_LOG_WARN, "statsd", "%s", notice.c_str());
  }
}

}  // namespace

android::base::Result<Statsd*> Statsd::startIn(const std::string& directory) {
  Instances& all = instances();
  const LockGuard lock(all.mutex);
  std::unique_ptr<Statsd>& statsd = all.byDirectory[directory];
  if (statsd != nullptr) return statsd.get();
  // Before anything is removed or bound: of two services that start at once, one must lose here.
  if (auto held = platform::holdServiceLock(directory); !held.ok()) return held.error();
  auto sockets = bindServiceSockets(directory);
  if (!sockets.ok()) return sockets.error();
  statsd = std::make_unique<Statsd>(*std::move(sockets));
  return statsd.get();
}

Statsd* Statsd::runningIn(const std::string& directory) {
  Instances& all = instances();
  const LockGuard lock(all.mutex);
  const auto found = all.byDirectory.find(directory);
  return found == all.byDirectory.end() ? nullptr : found->second.get();
}

Statsd::Statsd(ServiceSockets sockets)
    : mSockets(std::move(sockets)), mIntake(getuid(), ApplicationUids::ofThisHost()) {
  // The process's signals are for its own threads.
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, &before);
  std::thread thread([this] { run(); });
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  pthread_setname_np(thread.native_handle(), "statsd");
  thread.detach();
}

void Statsd::configure(ConfigKey key, const ConfigRules& rules) {
  const TurnGuard lock(mLock);
  mIntake.configure(key, rules);
}

std::vector<AtomRecord> Statsd::fetch(ConfigKey key) {
  std::vector<AtomRecord> atoms;  // empty for most queries
  std::vector<std::string> notices;
  {
    const TurnGuard lock(mLock);
    drain();
    notices = mIntake.takeNotices(Torv::Base::bootTimeNs());
    atoms = mIntake.take(key);
  }
  logAll(notices);
  // An atom becomes a protobuf message and then a state, each with some allocations.
  constexpr size_t kHeapBytesOfAtom = 512;
  if (!atoms.empty()) platform::noteHeapTraffic(atoms.size() * kHeapBytesOfAtom);
  return atoms;
}

StatsdStatus Statsd::status(uid_t asker) {
  StatsdStatus status;
  status.servicePid = getpid();
  status.serviceUid = getuid();
  status.askerUid = asker;
  const TurnGuard lock(mLock);
  drain();
  status.askerHeard = mIntake.hears(asker);
  mIntake.describe(status);
  return status;
}

void Statsd::run() {
  constexpr int kBackOffMs = 100;
  pollfd polled[] = {{mSockets.atoms.get(), POLLIN, 0}, {mSockets.status.get(), POLLIN, 0}};
  auto& [atoms, status] = polled;
  for (;;) {
    // A socket that fails, because no descriptor or memory is free, stays readable: it is left out for a
    // while.
    const bool isBackingOff = atoms.fd < 0 || status.fd < 0;
    const int ready = poll(polled, std::size(polled), isBackingOff ? kBackOffMs : -1);
    if (ready == 0) {
      atoms.fd = mSockets.atoms.get();
      status.fd = mSockets.status.get();
    }
    if (ready <= 0) continue;
    if (atoms.revents != 0 && !receiveAndLog()) atoms.fd = -1;
    if (status.revents != 0 && !answerStatus()) status.fd = -1;
  }
}

// Returns false if the socket fails.
bool Statsd::receiveAndLog() {
  std::vector<std::string> notices;
  std::optional<size_t> received;
  {
    const TurnGuard lock(mLock);
    received = receiveBatch();
    notices = mIntake.takeNotices(Torv::Base::bootTimeNs());
  }
  logAll(notices);
  return received.has_value();
}

// Receives what the queue held when the caller came, and no more: under a flood there is always a next one.
void Statsd::drain() {
  for (size_t sum = 0; sum < mQueueLength; sum += DatagramBatch::kMax) {
    if (receiveBatch() != DatagramBatch::kMax) return;
  }
}

// Returns the number of datagrams, or nullopt if the socket fails.
std::optional<size_t> Statsd::receiveBatch() {
  const std::optional<size_t> received = mBatch->receive(mSockets.atoms.get());
  if (!received) mIntake.noteReceiveFailure(strerror(errno));
  for (size_t i = 0; i < received.value_or(0); i++) {
    if (mBatch->isCut(i)) {
      mIntake.receiveTooLong(mBatch->sender(i));
    } else {
      mIntake.receive(mBatch->bytes(i), mBatch->sender(i));
    }
  }
  return received;
}

// Answers one connection. The text goes into the connection's buffer at once; an asker whose buffer does not
// take it gets nothing. Returns false if the connection could not be accepted.
bool Statsd::answerStatus() {
  const unique_fd asker(accept4(mSockets.status.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
  if (!asker.ok()) return errno == EAGAIN || errno == EINTR || errno == ECONNABORTED;
  ucred credentials{};
  socklen_t size = sizeof(credentials);
  if (getsockopt(asker.get(), SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0) return true;
  const std::string text = formatStatsdStatus(status(credentials.uid));
  send(asker.get(), text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
  return true;
}

}  // namespace libstatsd
