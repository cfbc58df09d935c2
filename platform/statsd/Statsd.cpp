#include "Statsd.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <map>
#include <thread>
#include <utility>

#include <android/log.h>
#include <fcntl.h>
#include <json/writer.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/Clock.h"
#include "runtime/HeapPolicy.h"
#include "runtime/RuntimeDirectory.h"
#include "runtime/SocketPath.h"

namespace libstatsd {

using android::base::ErrnoError;
using android::base::Result;
using android::base::unique_fd;
using Torv::Base::LockGuard;
using TurnGuard = Torv::Base::BasicLockGuard<TurnLock>;

namespace {

// Those of this process, by directory. Never destroyed: other threads may fetch while the process ends.
using Statsds = std::map<std::string, std::unique_ptr<Statsd>>;
Torv::Base::Mutex gMutex;
Statsds& gStatsds GUARDED_BY(gMutex) = *new Statsds();

// Binds a non-blocking socket, and replaces what a dead service left there; the caller holds the directory's
// service lock. The mode says which users may send or connect.
Result<unique_fd> bindSocket(const std::string& directory, const char* name, int type, mode_t mode) {
  auto path = platform::SocketPath::of(directory, name);
  if (!path.ok()) return path.error();
  unique_fd fd(socket(AF_UNIX, type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const int on = 1;
  if (!fd.ok() || setsockopt(fd.get(), SOL_SOCKET, SO_PASSCRED, &on, sizeof(on)) != 0 ||
      (unlinkat(path->directory(), name, 0) != 0 && errno != ENOENT) ||
      bind(fd.get(), path->address(), path->size()) != 0 || fchmodat(path->directory(), name, mode, 0) != 0 ||
      (type == SOCK_STREAM && listen(fd.get(), SOMAXCONN) != 0)) {
    return ErrnoError() << "cannot bind " << directory << "/" << name;
  }
  return fd;
}

// How many datagrams the kernel queues on a socket.
int kernelQueueLength() {
  constexpr int kUsual = 512;
  int length = 0;
  std::ifstream setting("/proc/sys/net/unix/max_dgram_qlen");
  return (setting >> length ? length : kUsual) + 1;
}

// As the kernel says, which no sender can change.
uid_t senderOf(const msghdr& message) {
  constexpr uid_t kUnknown = 65534;  // nobody
  const cmsghdr* header = CMSG_FIRSTHDR(&message);
  if (header == nullptr || header->cmsg_type != SCM_CREDENTIALS) return kUnknown;
  ucred credentials{};
  memcpy(&credentials, CMSG_DATA(header), sizeof(credentials));
  return credentials.uid;
}

void log(const std::string& text) {
  __android_log_print(ANDROID_LOG_WARN, "statsd", "%s", text.c_str());
}

}  // namespace

Result<Statsd*> Statsd::startIn(const std::string& directory) {
  const LockGuard lock(gMutex);
  std::unique_ptr<Statsd>& statsd = gStatsds[directory];
  if (statsd != nullptr) return statsd.get();
  // Before anything is removed or bound: of two services that start at once, one must lose here.
  if (auto held = platform::holdServiceLock(directory); !held.ok()) return held.error();
  auto atoms = bindSocket(directory, kAtomSocket, SOCK_DGRAM, 0222);
  if (!atoms.ok()) return atoms.error();
  auto status = bindSocket(directory, kStatusSocket, SOCK_STREAM, 0666);
  if (!status.ok()) return status.error();
  statsd = std::make_unique<Statsd>(*std::move(atoms), *std::move(status));
  return statsd.get();
}

Statsd* Statsd::runningIn(const std::string& directory) {
  const LockGuard lock(gMutex);
  const auto found = gStatsds.find(directory);
  return found == gStatsds.end() ? nullptr : found->second.get();
}

Statsd::Statsd(unique_fd atoms, unique_fd status)
    : mAtomSocket(std::move(atoms)), mStatusSocket(std::move(status)), mMessages{} {
  for (size_t i = 0; i < kMaxBatch; i++) {
    mVectors[i] = {mSlots[i].bytes.data(), mSlots[i].bytes.size()};
    mMessages[i].msg_hdr.msg_iov = &mVectors[i];
    mMessages[i].msg_hdr.msg_iovlen = 1;
    mMessages[i].msg_hdr.msg_control = mSlots[i].control.data();
    mMessages[i].msg_hdr.msg_controllen = mSlots[i].control.size();
  }
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

bool Statsd::configure(ConfigKey key, std::vector<int32_t> atomIds, std::vector<std::string> sources) {
  const TurnGuard lock(mLock);
  return mIntake.configure(key, std::move(atomIds), std::move(sources));
}

Report Statsd::fetch(ConfigKey key) {
  Report atoms;  // empty for most queries
  std::vector<std::string> notices;
  {
    const TurnGuard lock(mLock);
    drain();
    notices = mIntake.takeNotices(Torv::Base::bootTimeNs());
    atoms = mIntake.take(key);
  }
  for (const std::string& notice : notices) log(notice);
  // An atom becomes a protobuf message and then a state, each with some allocations.
  constexpr size_t kHeapBytesOfAtom = 512;
  if (!atoms.empty()) platform::noteHeapTraffic(atoms.size() * kHeapBytesOfAtom);
  return atoms;
}

StatsdStatus Statsd::status(uid_t asker) {
  const TurnGuard lock(mLock);
  drain();
  return mIntake.status(asker);
}

void Statsd::run() {
  constexpr int kBackOffMs = 100;
  platform::LogLimit failures(60 * platform::LogLimit::kSecondNs);
  for (int error = 0;;) {
    // A socket that fails, because no descriptor or memory is free, stays readable: neither is polled for a
    // while then.
    const short events = error == 0 ? POLLIN : 0;
    pollfd polled[] = {{mAtomSocket.get(), events, 0}, {mStatusSocket.get(), events, 0}};
    poll(polled, std::size(polled), error == 0 ? -1 : kBackOffMs);
    error = polled[0].revents != 0 ? receiveAndLog() : 0;
    if (error == 0 && polled[1].revents != 0) error = answerStatus();
    if (error != 0 && failures.count() != 0) log(std::string("cannot receive: ") + strerror(error));
  }
}

int Statsd::receiveAndLog() {
  int received = 0;
  std::vector<std::string> notices;
  {
    const TurnGuard lock(mLock);
    received = receiveBatch();
    notices = mIntake.takeNotices(Torv::Base::bootTimeNs());
  }
  for (const std::string& notice : notices) log(notice);
  return received < 0 ? -received : 0;
}

// Receives what the queue held when the caller came, and no more: under a flood there is always a next one.
void Statsd::drain() {
  static const int queueLength = kernelQueueLength();
  for (int sum = 0; sum < queueLength; sum += kMaxBatch) {
    if (receiveBatch() != kMaxBatch) return;
  }
}

int Statsd::receiveBatch() {
  const int received = recvmmsg(mAtomSocket.get(), mMessages.data(), kMaxBatch, MSG_DONTWAIT, nullptr);
  if (received < 0) return errno == EAGAIN || errno == EINTR ? 0 : -errno;
  for (int i = 0; i < received; i++) {
    msghdr& header = mMessages[i].msg_hdr;
    const bool isCut = (header.msg_flags & MSG_TRUNC) != 0;
    mIntake.receive({mSlots[i].bytes.data(), mMessages[i].msg_len}, isCut, senderOf(header));
    header.msg_controllen = mSlots[i].control.size();  // the kernel has written what it used
  }
  return received;
}

// The text goes into the connection's buffer at once; an asker whose buffer does not take it gets nothing.
int Statsd::answerStatus() {
  const unique_fd asker(accept4(mStatusSocket.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
  if (!asker.ok()) return errno == EAGAIN || errno == EINTR || errno == ECONNABORTED ? 0 : errno;
  ucred credentials{};
  socklen_t size = sizeof(credentials);
  if (getsockopt(asker.get(), SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0) return 0;
  const std::string text = Json::writeString(Json::StreamWriterBuilder(), toJson(status(credentials.uid)));
  send(asker.get(), text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
  return 0;
}

}  // namespace libstatsd
