#include "Statsd.h"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <tuple>

#include <android/log.h>
#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include "runtime/HeapPolicy.h"
#include "runtime/RuntimeDirectory.h"

namespace libstatsd {

using android::base::unique_fd;

namespace {

constexpr char kLogTag[] = "statsd";

int64_t nowNs(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

}  // namespace

android::base::Result<std::unique_ptr<Statsd>> Statsd::start(const std::string& directory) {
  if (auto held = platform::holdServiceLock(directory); !held.ok()) return held.error();
  auto sockets = bindServiceSockets(directory);
  if (!sockets.ok()) return sockets.error();
  unique_fd stop(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  if (!stop.ok()) return android::base::ErrnoError() << "cannot make an eventfd";
  return std::make_unique<Statsd>(*std::move(sockets), std::move(stop));
}

Statsd::Statsd(ServiceSockets sockets, unique_fd stop)
    : mSockets(std::move(sockets)),
      mStop(std::move(stop)),
      mQueueLength(kernelQueueLength()),
      mProcessor(getuid()),
      mBatch(std::make_unique<DatagramBatch>()) {
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
  std::optional<AtomStore> atoms;  // nothing for most queries
  ReportTimes times;
  std::vector<std::string> notices;
  {
    std::lock_guard lock(mLock);
    drain();
    notices = mProcessor.takeNotices(EventProcessor::Clock::now());
    atoms = mProcessor.take(key);
    if (atoms) {
      times.elapsedNs = nowNs(CLOCK_BOOTTIME);
      times.wallNs = nowNs(CLOCK_REALTIME);
      std::tie(times.lastElapsedNs, times.lastWallNs) =
          std::exchange(mLastReport[key], {times.elapsedNs, times.wallNs});
    }
  }
  logNotices(notices);
  if (atoms) platform::noteHeapTraffic(atoms->bytes());
  return atoms ? encodeReportList(key, *atoms, times) : std::string();
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
  pollfd polled[] = {
      {mStop.get(), POLLIN, 0}, {mSockets.atoms.get(), POLLIN, 0}, {mSockets.status.get(), POLLIN, 0}};
  auto& [stop, atoms, status] = polled;
  for (;;) {
    // A socket that fails (no file descriptor or memory is free) stays readable; it is left out for a while.
    const bool backingOff = atoms.fd < 0 || status.fd < 0;
    const int ready = poll(polled, std::size(polled), backingOff ? kBackOffMs : -1);
    if (ready == 0) {
      atoms.fd = mSockets.atoms.get();
      status.fd = mSockets.status.get();
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
  for (size_t sum = 0; sum < mQueueLength; sum += DatagramBatch::kMax) {
    if (receiveBatch() != DatagramBatch::kMax) return;
  }
}

// How many came, or nothing where the socket fails.
std::optional<size_t> Statsd::receiveBatch() {
  const std::optional<size_t> received = mBatch->receive(mSockets.atoms.get());
  if (!received) {
    mProcessor.noteReceiveFailure(strerror(errno));
    return std::nullopt;
  }
  for (size_t i = 0; i < *received; i++) {
    if (mBatch->isCut(i)) {
      mProcessor.receiveTooLong(mBatch->sender(i));
    } else {
      mProcessor.receive(mBatch->bytes(i), mBatch->sender(i));
    }
  }
  return received;
}

void Statsd::logNotices(const std::vector<std::string>& notices) {
  for (const std::string& notice : notices)
    __android_log_print(ANDROID_LOG_WARN, kLogTag, "%s", notice.c_str());
}

// One connection: the whole text goes into its buffer at once, or the asker gets nothing. False where it
// could not be accepted.
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
