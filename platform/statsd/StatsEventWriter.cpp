#include "statsd/StatsEventWriter.h"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <string>
#include <utility>

#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include "SocketNames.h"
#include "StatsEventFormat.h"
#include "runtime/RuntimeDirectory.h"
#include "runtime/SocketPath.h"

namespace libstatsd {
namespace {

constexpr int64_t kPatienceNs = 20'000'000;

constexpr int32_t kApplicationStateData = 110010;  // {1 pid, 2 key, 3 value}
constexpr int32_t kTelemetrySessionInfo = 111983;  // {1 service_session_id, 2 user_active_session_id}

timespec timeOf(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return time;
}

int64_t nowNs() {
  const timespec time = timeOf(CLOCK_MONOTONIC);
  return int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

template <typename T>
void append(std::string& out, T value) {
  out.append(reinterpret_cast<const char*>(&value), sizeof(value));
}

std::string logHeader() {
  const timespec time = timeOf(CLOCK_REALTIME);
  std::string header;
  append(header, kLogHeaderId);
  append(header, static_cast<uint16_t>(gettid()));
  append(header, static_cast<uint32_t>(time.tv_sec));
  append(header, static_cast<uint32_t>(time.tv_nsec));
  return header;
}

// 0 or an errno.
int sendBy(int fd, std::string_view datagram, int64_t deadlineNs) {
  for (;;) {
    if (::send(fd, datagram.data(), datagram.size(), MSG_DONTWAIT | MSG_NOSIGNAL) >= 0) return 0;
    if (errno == EINTR) continue;
    if (errno != EAGAIN) return errno;
    const int64_t leftNs = deadlineNs - nowNs();
    if (leftNs <= 0) return EAGAIN;
    pollfd writable{fd, POLLOUT, 0};
    const timespec left{.tv_sec = 0, .tv_nsec = leftNs};
    ppoll(&writable, 1, &left, nullptr);
  }
}

}  // namespace

WriteResult StatsEventWriter::write(const StatsEvent& event) {
  const int64_t deadlineNs = nowNs() + kPatienceNs;
  tellLosses(deadlineNs);
  std::string payload;
  append(payload, kStatsEventTag);
  payload += event.encoded();
  if (const int error = send(payload, deadlineNs); error != 0) {
    std::lock_guard lock(mMutex);
    mLosses.count++;
    mLosses.lastErrno = error;
    mLosses.lastAtomId = event.atomId();
    return WriteResult::Lost;
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

void StatsEventWriter::tellLosses(int64_t deadlineNs) {
  Losses losses;
  {
    std::lock_guard lock(mMutex);
    losses = std::exchange(mLosses, {});
  }
  if (losses.count == 0) return;
  std::string note;
  append(note, -losses.lastErrno);
  append(note, kDropNoteType);
  append(note, static_cast<int64_t>(losses.lastAtomId) << 32 | losses.count);
  if (send(note, deadlineNs) == 0) return;
  std::lock_guard lock(mMutex);
  losses.count += mLosses.count;
  if (mLosses.count != 0) {
    losses.lastErrno = mLosses.lastErrno;
    losses.lastAtomId = mLosses.lastAtomId;
  }
  mLosses = losses;
}

// Header and payload as one datagram; 0 or an errno.
int StatsEventWriter::send(std::string_view payload, int64_t deadlineNs) {
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

// Null, with errno set, where there is no service.
StatsEventWriter::Socket StatsEventWriter::connected() {
  constexpr int kSendBufferBytes = 1 << 20;
  std::lock_guard lock(mMutex);
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

void StatsEventWriter::disconnect(const Socket& socket) {
  std::lock_guard lock(mMutex);
  if (mSocket == socket) mSocket = nullptr;
}

}  // namespace libstatsd
