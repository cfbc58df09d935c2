#include "runtime/HostLog.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <iterator>
#include <string_view>

#include <android/log.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/Mutex.h"

namespace platform {
namespace {

void applyLogLevel() {
  constexpr std::string_view kLevels[] = {"verbose", "debug", "info", "warn", "error", "fatal", "silent"};
  __android_log_set_minimum_priority(ANDROID_LOG_INFO);
  const char* named = getenv("TORV_LOG_LEVEL");
  if (named == nullptr || *named == '\0') return;
  const auto* const level = std::find(std::begin(kLevels), std::end(kLevels), named);
  if (level != std::end(kLevels)) {
    // The priorities follow each other, as their names do above.
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE + static_cast<int32_t>(level - kLevels));
  } else {
    __android_log_print(ANDROID_LOG_WARN, "runtime",
                        "TORV_LOG_LEVEL=%s: it may be verbose, debug, info, warn, error, fatal or silent",
                        named);
  }
}

// O_NONBLOCK on standard error itself would change it for all processes that share it. A pipe or terminal can
// be opened a second time, unless it belongs to another user. Returns standard error if it cannot be.
int openStderrAgain() {
  struct stat status {};
  const bool isPipeOrDevice =
      fstat(STDERR_FILENO, &status) == 0 && (S_ISFIFO(status.st_mode) || S_ISCHR(status.st_mode));
  const int again =
      isPipeOrDevice ? open("/proc/self/fd/2", O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC) : -1;
  return again >= 0 ? again : STDERR_FILENO;
}

// Returns false if the text, of at most PIPE_BUF bytes, was not written as a whole.
bool writeWithoutBlocking(int fd, std::string_view text) {
  ssize_t written = send(fd, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  if (written < 0 && errno == ENOTSOCK) {
    // A pipe that is ready takes PIPE_BUF bytes without blocking, if nobody else writes to it meanwhile.
    pollfd ready{fd, POLLOUT, 0};
    if (poll(&ready, 1, 0) != 1 || ready.revents != POLLOUT) return false;
    written = write(fd, text.data(), text.size());
  }
  return written == static_cast<ssize_t>(text.size());
}

struct HostLog {
  // Held over the writes, which do not block, so that two threads do not share the last room of a pipe.
  Torv::Base::Mutex mutex;
  const int out = openStderrAgain();
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
    if (writeWithoutBlocking(log.out, format(ofNote, note, buffer))) log.lost = 0;
  }
  if (log.lost != 0 || !writeWithoutBlocking(log.out, format(*data, message, buffer))) ++log.lost;
}

}  // namespace

void installHostLog() {
  hostLog();
  signal(SIGPIPE, SIG_IGN);  // the reader of a pipe may go between the poll and the write
  __android_log_set_logger(&logToStderr);
  applyLogLevel();
}

}  // namespace platform
