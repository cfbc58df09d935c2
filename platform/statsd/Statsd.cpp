#include "Statsd.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <fstream>
#include <map>
#include <optional>
#include <tuple>
#include <utility>

#include <android/log.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "SocketNames.h"
#include "StatsEventFormat.h"
#include "runtime/RuntimeDirectory.h"
#include "runtime/SocketPath.h"

namespace libstatsd {

using android::base::unique_fd;

// Room for one recvmmsg(2). A page is touched only when a datagram lies in it.
struct ReceiveBatch {
  static constexpr size_t kDatagrams = 32;

  struct Slot {
    std::array<char, kMaxDatagramBytes> bytes;
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(ucred))> control;
    iovec vector;
  };

  std::array<Slot, kDatagrams> slots;
  std::array<mmsghdr, kDatagrams> messages;
};

namespace {

constexpr char kLogTag[] = "statsd";
constexpr uid_t kUnknownUid = 65534;  // of a sender whom the kernel does not name

std::string failure(const std::string& what) {
  return what + ": " + strerror(errno);
}

// Binds a new socket to <directory>/<name>, in the place of what a dead service left.
std::variant<unique_fd, std::string> bindSocket(const std::string& directory, const char* name, int type,
                                                mode_t mode) {
  const std::string shown = directory + "/" + name;
  const platform::SocketPath path(directory, name);
  if (!path.ok()) return path.error();
  unique_fd fd(socket(AF_UNIX, type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!fd.ok()) return failure("cannot make a socket");
  const int on = 1;
  if (type == SOCK_DGRAM && setsockopt(fd.get(), SOL_SOCKET, SO_PASSCRED, &on, sizeof(on)) != 0) {
    return failure("cannot ask for credentials on " + shown);
  }
  if (unlinkat(path.directory(), name, 0) != 0 && errno != ENOENT) return failure("cannot remove " + shown);
  if (bind(fd.get(), path.address(), path.size()) != 0) return failure("cannot bind " + shown);
  if (fchmodat(path.directory(), name, mode, 0) != 0) return failure("cannot set the mode of " + shown);
  if (type == SOCK_STREAM && listen(fd.get(), SOMAXCONN) != 0) return failure("cannot listen on " + shown);
  return fd;
}

// How many datagrams the kernel queues on a socket bound now: the setting, and one more.
size_t kernelQueueLength() {
  constexpr size_t kOften = 512;
  size_t length = 0;
  std::ifstream setting("/proc/sys/net/unix/max_dgram_qlen");
  return (setting >> length ? length : kOften) + 1;
}

uid_t senderOf(msghdr& message) {
  for (cmsghdr* header = CMSG_FIRSTHDR(&message); header != nullptr; header = CMSG_NXTHDR(&message, header)) {
    if (header->cmsg_level != SOL_SOCKET || header->cmsg_type != SCM_CREDENTIALS) continue;
    ucred credentials{};
    memcpy(&credentials, CMSG_DATA(header), sizeof(credentials));
    return credentials.uid;
  }
  return kUnknownUid;
}

int64_t nowNs(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

}  // namespace

std::variant<std::unique_ptr<Statsd>, std::string> Statsd::start(const std::string& directory) {
  if (auto refused = platform::holdServiceLock(directory)) return *std::move(refused);
  constexpr mode_t kWriteOnly = 0222;
  constexpr mode_t kReadWrite = 0666;
  auto atoms = bindSocket(directory, kAtomSocket, SOCK_DGRAM, kWriteOnly);
  if (auto* error = std::get_if<std::string>(&atoms)) return *std::move(error);
  auto status = bindSocket(directory, kStatusSocket, SOCK_STREAM, kReadWrite);
  if (auto* error = std::get_if<std::string>(&status)) return *std::move(error);
  unique_fd stop(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  if (!stop.ok()) return failure("cannot make an eventfd");
  return std::unique_ptr<Statsd>(new Statsd(std::get<unique_fd>(std::move(atoms)),
                                            std::get<unique_fd>(std::move(status)), std::move(stop)));
}

Statsd::Statsd(unique_fd atoms, unique_fd statusListener, unique_fd stop)
    : mAtoms(std::move(atoms)),
      mStatusListener(std::move(statusListener)),
      mStop(std::move(stop)),
      mQueueLength(kernelQueueLength()),
      mProcessor(getuid()),
      mBatch(std::make_unique_for_overwrite<ReceiveBatch>()) {
  // The process's signals are for its own threads.
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, &before);
  mThread = std::thread([this] { run(); });
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  pthread_setname_np(mThread.native_handle(), "statsd");
}

Statsd::~Statsd() {
  eventfd_write(mStop.get(), 1);
  mThread.join();
}

void Statsd::configure(ConfigKey key, const ConfigRules& rules) {
  std::lock_guard lock(mLock);
  mProcessor.configure(key, rules);
  mLastReport.try_emplace(key, nowNs(CLOCK_BOOTTIME), nowNs(CLOCK_REALTIME));
}

std::string Statsd::fetch(ConfigKey key) {
  AtomStore atoms;
  ReportTimes times;
  times.elapsedNs = nowNs(CLOCK_BOOTTIME);
  times.wallNs = nowNs(CLOCK_REALTIME);
  std::vector<std::string> notices;
  {
    std::lock_guard lock(mLock);
    drain();
    atoms = mProcessor.take(key);
    notices = mProcessor.takeNotices(EventProcessor::Clock::now());
    std::tie(times.lastElapsedNs, times.lastWallNs) =
        std::exchange(mLastReport[key], {times.elapsedNs, times.wallNs});
  }
  logNotices(notices);
  return encodeReportList(key, atoms, times);
}

StatsdStatus Statsd::status(uid_t asker) {
  StatsdStatus status;
  status.servicePid = getpid();
  status.serviceUid = getuid();
  status.askerUid = asker;
  std::lock_guard lock(mLock);
  drain();
  status.counters = mProcessor.counters();
  status.askerHeard = mProcessor.hears(asker);
  status.allowedSources = mProcessor.allowedSources();
  return status;
}

void Statsd::run() {
  constexpr int kBackOffMs = 100;
  pollfd polled[] = {{mStop.get(), POLLIN, 0}, {mAtoms.get(), POLLIN, 0}, {mStatusListener.get(), POLLIN, 0}};
  auto& [stop, atoms, status] = polled;
  for (;;) {
    // A socket that fails (no file descriptor or memory is free) stays readable; it is left out for a while.
    const bool backingOff = atoms.fd < 0 || status.fd < 0;
    const int ready = poll(polled, std::size(polled), backingOff ? kBackOffMs : -1);
    if (ready == 0) {
      atoms.fd = mAtoms.get();
      status.fd = mStatusListener.get();
    }
    if (ready <= 0) continue;
    if (stop.revents != 0) return;
    if (atoms.revents != 0 && !receiveAndLog()) atoms.fd = -1;
    if (status.revents != 0 && !answerStatus()) status.fd = -1;
  }
}

// False where the socket fails.
bool Statsd::receiveAndLog() {
  std::vector<std::string> notices;
  std::optional<size_t> received;
  {
    std::lock_guard lock(mLock);
    received = receiveBatch();
    notices = mProcessor.takeNotices(EventProcessor::Clock::now());
  }
  logNotices(notices);
  return received.has_value();
}

// As much as the queue held when the caller came, and no more: under a flood there is always a next one.
void Statsd::drain() {
  for (size_t sum = 0; sum < mQueueLength; sum += ReceiveBatch::kDatagrams) {
    if (receiveBatch() != ReceiveBatch::kDatagrams) return;
  }
}

// How many came, or nothing where the socket fails.
std::optional<size_t> Statsd::receiveBatch() {
  for (size_t i = 0; i < ReceiveBatch::kDatagrams; i++) {
    ReceiveBatch::Slot& slot = mBatch->slots[i];
    slot.vector = {slot.bytes.data(), slot.bytes.size()};
    msghdr& header = mBatch->messages[i].msg_hdr;
    header = {};
    header.msg_iov = &slot.vector;
    header.msg_iovlen = 1;
    header.msg_control = slot.control.data();
    header.msg_controllen = slot.control.size();
  }
  const int received =
      recvmmsg(mAtoms.get(), mBatch->messages.data(), ReceiveBatch::kDatagrams, MSG_DONTWAIT, nullptr);
  if (received < 0) {
    if (errno == EAGAIN || errno == EINTR) return 0;
    mProcessor.noteReceiveFailure(strerror(errno));
    return std::nullopt;
  }
  for (int i = 0; i < received; i++) {
    mmsghdr& message = mBatch->messages[i];
    const uid_t sender = senderOf(message.msg_hdr);
    if ((message.msg_hdr.msg_flags & MSG_TRUNC) != 0) {
      mProcessor.receiveTooLong(sender);
    } else {
      mProcessor.receive({mBatch->slots[i].bytes.data(), message.msg_len}, sender);
    }
  }
  return static_cast<size_t>(received);
}

void Statsd::logNotices(const std::vector<std::string>& notices) {
  for (const std::string& notice : notices)
    __android_log_print(ANDROID_LOG_WARN, kLogTag, "%s", notice.c_str());
}

// One connection: the whole text goes into its buffer at once, or the asker gets nothing. False where it
// could not be accepted.
bool Statsd::answerStatus() {
  const unique_fd asker(accept4(mStatusListener.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
  if (!asker.ok()) return errno == EAGAIN || errno == EINTR || errno == ECONNABORTED;
  ucred credentials{};
  socklen_t size = sizeof(credentials);
  if (getsockopt(asker.get(), SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0) return true;
  const std::string text = formatStatsdStatus(status(credentials.uid));
  send(asker.get(), text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
  return true;
}

namespace {

struct Instances {
  std::mutex mutex;
  std::map<std::string, std::unique_ptr<Statsd>> byDirectory;  // guarded by mutex
};

// Never destroyed: other threads may fetch while the process ends.
Instances& instances() {
  static auto& all = *new Instances();
  return all;
}

}  // namespace

std::variant<Statsd*, std::string> statsdOf(const std::string& directory) {
  Instances& all = instances();
  std::lock_guard lock(all.mutex);
  std::unique_ptr<Statsd>& statsd = all.byDirectory[directory];
  if (statsd == nullptr) {
    auto started = Statsd::start(directory);
    if (auto* error = std::get_if<std::string>(&started)) return *std::move(error);
    statsd = std::get<std::unique_ptr<Statsd>>(std::move(started));
  }
  return statsd.get();
}

Statsd* runningStatsdOf(const std::string& directory) {
  Instances& all = instances();
  std::lock_guard lock(all.mutex);
  const auto found = all.byDirectory.find(directory);
  return found == all.byDirectory.end() ? nullptr : found->second.get();
}

}  // namespace libstatsd
