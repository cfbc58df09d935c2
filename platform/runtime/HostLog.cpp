#include "runtime/HostLog.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string_view>
#include <utility>

#include <android-base/unique_fd.h>
#include <android/log.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/Mutex.h"

namespace platform {
namespace {

void applyLogLevel() {
  constexpr std::array<std::pair<std::string_view, android_LogPriority>, 7> kLevels = {{
      {"verbose", ANDROID_LOG_VERBOSE},
      {"debug", ANDROID_LOG_DEBUG},
      {"info", ANDROID_LOG_INFO},
      {"warn", ANDROID_LOG_WARN},
      {"error", ANDROID_LOG_ERROR},
      {"fatal", ANDROID_LOG_FATAL},
      {"silent", ANDROID_LOG_SILENT},
  }};
  __android_log_set_minimum_priority(ANDROID_LOG_INFO);
  const char* named = getenv("TORV_LOG_LEVEL");
  if (named == nullptr || *named == '\0') return;
  for (const auto& [name, priority] : kLevels) {
    if (name != named) continue;
    __android_log_set_minimum_priority(priority);
    return;
  }
  __android_log_print(ANDROID_LOG_WARN, "runtime",
                      "TORV_LOG_LEVEL=%s: it may be verbose, debug, info, warn, error, fatal or silent",
                      named);
}

// Standard error, written to without blocking.
class NonBlockingStderr {
 public:
  NonBlockingStderr() {
    struct stat status {};
    if (fstat(STDERR_FILENO, &status) != 0) return;
    mIsSocket = S_ISSOCK(status.st_mode);
    // O_NONBLOCK on the descriptor itself would change it for all processes that share it. A pipe or terminal
    // can be opened a second time, unless it belongs to another user.
    if (!S_ISFIFO(status.st_mode) && !S_ISCHR(status.st_mode)) return;
    mReopened.reset(open("/proc/self/fd/2", O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  }

  // Returns false if the text, of at most PIPE_BUF bytes, was not written as a whole.
  bool write(std::string_view text) const {
    const int fd = mReopened.ok() ? mReopened.get() : STDERR_FILENO;
    // A pipe that is ready takes PIPE_BUF bytes without blocking, if nobody else writes to it meanwhile.
    pollfd ready{fd, POLLOUT, 0};
    if (poll(&ready, 1, 0) != 1 || ready.revents != POLLOUT) return false;
    const ssize_t written = mIsSocket ? send(fd, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL)
                                      : ::write(fd, text.data(), text.size());
    return written == static_cast<ssize_t>(text.size());
  }

 private:
  bool mIsSocket = false;
  android::base::unique_fd mReopened;
};

struct HostLog {
  // Held over the writes, which do not block, so that two threads do not share the last room of a pipe.
  Torv::Base::Mutex mutex;
  const NonBlockingStderr out;
  uint64_t lost GUARDED_BY(mutex) = 0;  // lines, since the last that was written
};

HostLog& hostLog() {
  static auto& log = *new HostLog();  // never destroyed: threads log until the process is gone
  return log;
}

// The layout of liblog's own lines on a host: tag, priority, local time, process id, thread id, text.
std::string_view format(const __android_logger_data& data, const char* message,
                        std::array<char, PIPE_BUF>& line) {
  constexpr char kPriorities[] = "??VDIWEF";
  const auto priority = std::clamp<size_t>(data.priority, 0, sizeof(kPriorities) - 2);
  const time_t now = time(nullptr);
  tm local{};
  char when[32];
  strftime(when, sizeof(when), "%m-%d %H:%M:%S", localtime_r(&now, &local));
  const char* tag = data.tag != nullptr ? data.tag : program_invocation_short_name;
  const std::string_view text(message);
  const auto length = static_cast<int>(text.size() - (text.ends_with('\n') ? 1 : 0));
  const int wanted = snprintf(line.data(), line.size(), "%s %c %s %5d %5d %.*s\n", tag, kPriorities[priority],
                              when, getpid(), gettid(), length, message);
  const size_t size = std::clamp<size_t>(wanted, 1, line.size() - 1);
  line[size - 1] = '\n';
  return {line.data(), size};
}

void logToStderr(const __android_logger_data* data, const char* message) {
  std::array<char, PIPE_BUF> buffer;
  HostLog& log = hostLog();
  const Torv::Base::LockGuard lock(log.mutex);
  if (log.lost != 0) {
    char note[96];
    snprintf(note, sizeof(note), "%llu log lines were lost because standard error was full",
             static_cast<unsigned long long>(log.lost));
    __android_logger_data ofNote = *data;
    ofNote.tag = "runtime";
    ofNote.priority = ANDROID_LOG_WARN;
    if (log.out.write(format(ofNote, note, buffer))) log.lost = 0;
  }
  if (log.lost != 0 || !log.out.write(format(*data, message, buffer))) ++log.lost;
}

}  // namespace

void installHostLog() {
  hostLog();
  __android_log_set_logger(&logToStderr);
  applyLogLevel();
}

}  // namespace platform
