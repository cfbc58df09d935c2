#include "statsd/StatsdStatus.h"

#include <cerrno>
#include <charconv>

#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include "SocketNames.h"
#include "runtime/RuntimeDirectory.h"
#include "runtime/SocketPath.h"

namespace libstatsd {

using android::base::ErrnoError;
using android::base::Error;
using android::base::Result;

namespace {

template <typename Number>
bool parseNumber(std::string_view text, Number* number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), *number);
  return error == std::errc() && end == text.data() + text.size();
}

bool parseValue(std::string_view name, std::string_view value, StatsdStatus* status) {
  if (name == "service_pid") return parseNumber(value, &status->servicePid);
  if (name == "service_uid") return parseNumber(value, &status->serviceUid);
  if (name == "asker_uid") return parseNumber(value, &status->askerUid);
  if (name == "allowed_sources") status->allowedSources = value;
  if (name == "asker_heard") status->askerHeard = value == "1";
  bool ok = true;
  forEachCounter(status->counters, [&](const char* counter, uint64_t& count) {
    if (name == counter) ok = parseNumber(value, &count);
  });
  return ok;
}

}  // namespace

std::string formatStatsdStatus(const StatsdStatus& status) {
  std::string text;
  const auto line = [&](const char* name, const std::string& value) {
    text.append(name) += " " + value + "\n";
  };
  line("service_pid", std::to_string(status.servicePid));
  line("service_uid", std::to_string(status.serviceUid));
  line("asker_uid", std::to_string(status.askerUid));
  line("asker_heard", status.askerHeard ? "1" : "0");
  line("allowed_sources", status.allowedSources);
  forEachCounter(status.counters,
                 [&](const char* name, uint64_t count) { line(name, std::to_string(count)); });
  return text;
}

bool parseStatsdStatus(std::string_view text, StatsdStatus* status) {
  bool ok = !text.empty();
  while (!text.empty() && ok) {
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    const size_t space = line.find(' ');
    ok = space != std::string_view::npos && parseValue(line.substr(0, space), line.substr(space + 1), status);
  }
  return ok;
}

Result<StatsdStatus> readStatsdStatus(std::chrono::milliseconds patience) {
  const std::string directory = platform::runtimeDirectory();
  auto path = platform::SocketPath::of(directory, kStatusSocket);
  if (!path.ok()) return path.error();
  const std::string shown = directory + "/" + kStatusSocket;
  const android::base::unique_fd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const timeval timeout{.tv_sec = patience.count() / 1000, .tv_usec = patience.count() % 1000 * 1000};
  if (!fd.ok() || setsockopt(fd.get(), SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof(timeout)) != 0 ||
      setsockopt(fd.get(), SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof(timeout)) != 0 ||
      connect(fd.get(), path->address(), path->size()) != 0) {
    return ErrnoError() << "cannot reach " << shown;
  }
  std::string text;
  char buffer[4096];
  ssize_t size = 0;
  while ((size = TEMP_FAILURE_RETRY(read(fd.get(), buffer, sizeof(buffer)))) > 0) text.append(buffer, size);
  if (size < 0) return ErrnoError() << "no answer from " << shown;
  StatsdStatus status;
  if (!parseStatsdStatus(text, &status)) return Error() << "the answer of " << shown << " cannot be read";
  return status;
}

}  // namespace libstatsd
