#include "statsd/StatsEventWriter.h"

#include <cerrno>
#include <ctime>
#include <string>
#include <utility>

#include <android-base/unique_fd.h>
#include <sys/socket.h>
#include <unistd.h>

#include "StatsEventFormat.h"
#include "base/Clock.h"
#include "base/Mutex.h"
#include "runtime/RuntimeDirectory.h"
#include "runtime/SocketPath.h"
#include "statsd/diagnostics_publisher.h"

namespace libstatsd {

using Torv::Base::bootTimeNs;
using Torv::Base::LockGuard;

namespace {

constexpr int64_t kPatienceNs = 20'000'000;

constexpr int32_t kApplicationStateData = 110010;  // {1 pid, 2 key, 3 value}
constexpr int32_t kTelemetrySessionInfo = 111983;  // {1 service_session_id, 2 user_active_session_id}

template <typename T>
std::string elementOf(ElementType type, T value) {
  std::string element;
  append(element, type);
  append(element, value);
  return element;
}

std::string elementOf(std::string_view text) {
  return elementOf(ElementType::String, static_cast<int32_t>(text.size())).append(text);
}

std::string eventOf(int32_t atomId, size_t fieldCount, std::string_view fields) {
  std::string event;
  append(event, ElementType::Object);
  append(event, static_cast<uint8_t>(kMinElements + fieldCount));
  event += elementOf(ElementType::Int64, bootTimeNs());
  return event.append(elementOf(ElementType::Int32, atomId)).append(fields);
}

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

}  // namespace

class StatsEventWriter::Sender {
 public:
  // Sends the atom that has the encoded `fields`, and before it what was lost.
  WriteResult write(int32_t atomId, size_t fieldCount, std::string_view fields);

 private:
  struct Losses {
    uint32_t count = 0;
    int32_t lastErrno = 0;
    int32_t lastAtomId = 0;
  };

  void sendLosses(int64_t deadlineNs);
  void noteLosses(const Losses& losses);
  int send(std::string_view payload, int64_t deadlineNs);
  int socketFd();
  static int connectToService(int fd);

  Torv::Base::Mutex mMutex;
  android::base::unique_fd mSocket GUARDED_BY(mMutex);  // once made, it stays
  Losses mLosses GUARDED_BY(mMutex);                    // not told yet
};

StatsEventWriter::StatsEventWriter() : mSender(std::make_unique<Sender>()) {}
StatsEventWriter::~StatsEventWriter() = default;

WriteResult StatsEventWriter::publishApplicationState(int32_t pid, std::string_view key,
                                                      std::string_view value) {
  return mSender->write(kApplicationStateData, 3,
                        elementOf(ElementType::Int32, pid) + elementOf(key) + elementOf(value));
}

WriteResult StatsEventWriter::publishTelemetrySession(std::string_view serviceSessionId,
                                                      std::string_view userActiveSessionId) {
  return mSender->write(kTelemetrySessionInfo, 2,
                        elementOf(serviceSessionId) + elementOf(userActiveSessionId));
}

WriteResult StatsEventWriter::Sender::write(int32_t atomId, size_t fieldCount, std::string_view fields) {
  const int64_t deadlineNs = bootTimeNs() + kPatienceNs;
  sendLosses(deadlineNs);
  std::string event = eventOf(atomId, fieldCount, fields);
  const bool fits = event.size() <= kMaxEventBytes;
  if (!fits) event = eventOf(atomId, 1, elementOf(ElementType::Error, kOverflowError));
  std::string payload;
  append(payload, kStatsEventTag);
  if (const int error = send(payload.append(event), deadlineNs); error != 0) {
    noteLosses({1, error, atomId});
    return error == EAGAIN ? WriteResult::QueueFull : WriteResult::NoService;
  }
  return fits ? WriteResult::Sent : WriteResult::TooLarge;
}

void StatsEventWriter::Sender::sendLosses(int64_t deadlineNs) {
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
  if (send(note, deadlineNs) != 0) noteLosses(losses);
}

void StatsEventWriter::Sender::noteLosses(const Losses& losses) {
  const LockGuard lock(mMutex);
  mLosses = {mLosses.count + losses.count, losses.lastErrno, losses.lastAtomId};
}

// Sends a log header and `payload` as one datagram, until `deadlineNs` (CLOCK_BOOTTIME) at most. Returns 0 or
// an errno, EAGAIN if the queue stays full.
int StatsEventWriter::Sender::send(std::string_view payload, int64_t deadlineNs) {
  constexpr timespec kPause{.tv_sec = 0, .tv_nsec = 1'000'000};
  const std::string datagram = logHeader().append(payload);
  const int fd = socketFd();
  bool isConnectedAnew = false;
  while (::send(fd, datagram.data(), datagram.size(), MSG_DONTWAIT) < 0) {
    const int error = errno;
    if (error == EAGAIN && bootTimeNs() < deadlineNs) {
      nanosleep(&kPause, nullptr);
      continue;
    }
    if (error == EAGAIN || isConnectedAnew) return error;
    // This is the first atom, or the service has ended and may have been started again.
    if (const int failed = connectToService(fd); failed != 0) return failed;
    isConnectedAnew = true;
  }
  return 0;
}

// Connects the socket to the service of now, or connects it to another one than before: no thread has to
// replace a socket that others use. Returns 0 or an errno.
int StatsEventWriter::Sender::connectToService(int fd) {
  auto path = platform::SocketPath::of(platform::runtimeDirectory(), kAtomSocket);
  if (!path.ok()) return path.error().code();
  return connect(fd, path->address(), path->size()) == 0 ? 0 : errno;
}

// Returns -1 if no socket can be made now.
int StatsEventWriter::Sender::socketFd() {
  constexpr int kSendBufferBytes = 1 << 20;
  const LockGuard lock(mMutex);
  if (!mSocket.ok()) {
    mSocket.reset(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    setsockopt(mSocket.get(), SOL_SOCKET, SO_SNDBUF, &kSendBufferBytes, sizeof(kSendBufferBytes));
  }
  return mSocket.get();
}

}  // namespace libstatsd

// --- for C ---

namespace {

// Never destroyed: threads may publish until the process is gone.
libstatsd::StatsEventWriter& writer() {
  static auto& shared = *new libstatsd::StatsEventWriter();
  return shared;
}

// Returns 0 or a negated errno.
int resultOf(libstatsd::WriteResult result) {
  constexpr int kResults[] = {0, -EMSGSIZE, -EAGAIN, -ENOTCONN};  // in the order of WriteResult
  return kResults[static_cast<int>(result)];
}

}  // namespace

int diagnostics_publish_state(int32_t pid, const char* key, const char* value) {
  if (key == nullptr || value == nullptr) return -EINVAL;
  return resultOf(writer().publishApplicationState(pid != 0 ? pid : getpid(), key, value));
}

int diagnostics_publish_session(const char* service_session_id, const char* user_active_session_id) {
  if (service_session_id == nullptr || user_active_session_id == nullptr) return -EINVAL;
  return resultOf(writer().publishTelemetrySession(service_session_id, user_active_session_id));
}
