#include "statsd/StatsEventWriter.h"

#include <cerrno>
#include <ctime>
#include <string>
#include <utility>

#include <android-base/unique_fd.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "AppendBytes.h"
#include "ServiceSockets.h"
#include "StatsEventFormat.h"
#include "base/Clock.h"
#include "base/Mutex.h"
#include "runtime/RuntimeDirectory.h"
#include "runtime/SocketPath.h"

namespace libstatsd {

using Torv::Base::bootTimeNs;
using Torv::Base::LockGuard;

namespace {

constexpr int64_t kPatienceNs = 20'000'000;

constexpr int32_t kApplicationStateData = 110010;  // {1 pid, 2 key, 3 value}
constexpr int32_t kTelemetrySessionInfo = 111983;  // {1 service_session_id, 2 user_active_session_id}

std::string logHeader() {
  timespec time{};
  clock_gettime(CLOCK_REALTIME, &time);
  std::string header;
  append(header, kLogHeaderId);
  append(header, static_cast<uint16_t>(gettid()));
  append(header, static_cast<uint32_t>(time.tv_sec));
  append(header, static_cast<uint32_t>(time.tv_nsec));
  return header;
}

// Returns 0 or an errno, EAGAIN if the queue is full until the deadline.
int sendBy(int fd, std::string_view datagram, int64_t deadlineNs) {
  for (;;) {
    if (send(fd, datagram.data(), datagram.size(), MSG_DONTWAIT | MSG_NOSIGNAL) >= 0) return 0;
    if (errno == EINTR) continue;
    if (errno != EAGAIN) return errno;
    const int64_t leftNs = deadlineNs - bootTimeNs();
    if (leftNs <= 0) return EAGAIN;
    pollfd writable{fd, POLLOUT, 0};
    const timespec left{.tv_sec = 0, .tv_nsec = leftNs};
    ppoll(&writable, 1, &left, nullptr);
  }
}

}  // namespace

class StatsEventWriter::Connection {
 public:
  // Each sends a log header and `payload` as one datagram, and returns 0 or an errno. Waits until
  // `deadlineNs` (CLOCK_BOOTTIME) at most.
  int send(std::string_view payload, int64_t deadlineNs);
  // Tells the service of events that did not reach it.
  void sendLosses(int64_t deadlineNs);
  void noteLoss(int32_t error, int32_t atomId);

 private:
  using Socket = std::shared_ptr<const android::base::unique_fd>;

  struct Losses {
    uint32_t count = 0;
    int32_t lastErrno = 0;
    int32_t lastAtomId = 0;
  };

  Socket connected();
  void disconnect(const Socket& socket);

  Torv::Base::Mutex mMutex;  // never held over a system call that can wait
  Socket mSocket GUARDED_BY(mMutex);
  Losses mLosses GUARDED_BY(mMutex);  // not told yet
};

StatsEventWriter::StatsEventWriter() : mConnection(std::make_unique<Connection>()) {}
StatsEventWriter::~StatsEventWriter() = default;

WriteResult StatsEventWriter::write(const StatsEvent& event) {
  const int64_t deadlineNs = bootTimeNs() + kPatienceNs;
  mConnection->sendLosses(deadlineNs);
  std::string payload;
  append(payload, kStatsEventTag);
  payload += event.encoded();
  if (const int error = mConnection->send(payload, deadlineNs); error != 0) {
    mConnection->noteLoss(error, event.atomId());
    return error == EAGAIN ? WriteResult::QueueFull : WriteResult::NoService;
  }
  return event.complete() ? WriteResult::Sent : WriteResult::TooLarge;
}

WriteResult StatsEventWriter::publishApplicationState(int32_t pid, std::string_view key,
                                                      std::string_view value) {
  return write(StatsEvent(kApplicationStateData).addInt32(pid).addString(key).addString(value));
}

WriteResult StatsEventWriter::publishTelemetrySession(std::string_view serviceSessionId,
                                                      std::string_view userActiveSessionId) {
  return write(StatsEvent(kTelemetrySessionInfo).addString(serviceSessionId).addString(userActiveSessionId));
}

void StatsEventWriter::Connection::noteLoss(int32_t error, int32_t atomId) {
  const LockGuard lock(mMutex);
  mLosses = {mLosses.count + 1, error, atomId};
}

void StatsEventWriter::Connection::sendLosses(int64_t deadlineNs) {
  Losses losses;
  {
    const LockGuard lock(mMutex);
    losses = std::exchange(mLosses, {});
  }
  if (losses.count == 0) return;
  std::string note;
  append(note, -losses.lastErrno);
  append(note, kDropNoteType);
  append(note, static_cast<int64_t>(losses.lastAtomId) << 32 | losses.count);
  if (send(note, deadlineNs) == 0) return;
  const LockGuard lock(mMutex);
  losses.count += mLosses.count;
  mLosses = mLosses.count == 0 ? losses : Losses{losses.count, mLosses.lastErrno, mLosses.lastAtomId};
}

int StatsEventWriter::Connection::send(std::string_view payload, int64_t deadlineNs) {
  const std::string datagram = logHeader().append(payload);
  constexpr int kAttempts = 2;  // the second on a new connection: the service may have been restarted
  int error = 0;
  for (int attempt = 0; attempt < kAttempts; attempt++) {
    const Socket socket = connected();
    if (socket == nullptr) return errno;
    error = sendBy(socket->get(), datagram, deadlineNs);
    if (error == 0 || error == EAGAIN) return error;
    disconnect(socket);
  }
  return error;
}

// Returns null and sets errno if there is no service.
StatsEventWriter::Connection::Socket StatsEventWriter::Connection::connected() {
  constexpr int kSendBufferBytes = 1 << 20;
  const LockGuard lock(mMutex);
  if (mSocket != nullptr) return mSocket;
  auto path = platform::SocketPath::of(platform::runtimeDirectory(), kAtomSocket);
  if (!path.ok()) {
    errno = path.error().code();
    return nullptr;
  }
  android::base::unique_fd fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!fd.ok()) return nullptr;
  setsockopt(fd.get(), SOL_SOCKET, SO_SNDBUF, &kSendBufferBytes, sizeof(kSendBufferBytes));
  if (connect(fd.get(), path->address(), path->size()) != 0) return nullptr;
  mSocket = std::make_shared<const android::base::unique_fd>(std::move(fd));
  return mSocket;
}

void StatsEventWriter::Connection::disconnect(const Socket& socket) {
  const LockGuard lock(mMutex);
  if (mSocket == socket) mSocket = nullptr;
}

}  // namespace libstatsd
