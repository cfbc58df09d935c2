#include "statsd/StatsdStatus.h"

#include <cerrno>
#include <charconv>

#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include "ServiceSockets.h"
#include "base/Files.h"
#include "runtime/RuntimeDirectory.h"
#include "runtime/SocketPath.h"

namespace libstatsd {

using android::base::ErrnoError;
using android::base::Error;
using android::base::Result;

namespace {

// Parses one number for each pointer, separated by single spaces.
template <typename... Numbers>
bool parseNumbers(std::string_view text, Numbers*... numbers) {
  const char* at = text.data();
  const char* const end = at + text.size();
  const auto parseOne = [&](auto* number) {
    if (at != text.data() && (at == end || *at++ != ' ')) return false;
    const auto [next, error] = std::from_chars(at, end, *number);
    at = next;
    return error == std::errc();
  };
  return (parseOne(numbers) && ...) && at == end;
}

bool parseValue(std::string_view name, std::string_view value, StatsdStatus* status) {
  if (name == "service_pid") return parseNumbers(value, &status->servicePid);
  if (name == "service_uid") return parseNumbers(value, &status->serviceUid);
  if (name == "asker_uid") return parseNumbers(value, &status->askerUid);
  if (name == "asker_heard") status->askerHeard = value == "1";
  if (name == "allowed_sources") status->allowedSources = value;
  if (name == "application_uids") status->applicationUids = value;
  if (name == "uid") {
    UidCounters& of = status->uids.emplace_back();
    return parseNumbers(value, &of.uid, &of.received, &of.notHeard, &of.droppedFull, &of.held);
  }
  bool ok = true;
  forEachCounter(status->counters, [&](const char* counter, uint64_t& count) {
    if (name == counter) ok = parseNumbers(value, &count);
  });
  return ok;
}

}  // namespace

std::string formatStatsdStatus(const StatsdStatus& status) {
  std::string text;
  const auto line = [&](const char* name, const std::string& value) {
    text.append(name).append(" ").append(value).append("\n");
  };
  line("service_pid", std::to_string(status.servicePid));
  line("service_uid", std::to_string(status.serviceUid));
  line("asker_uid", std::to_string(status.askerUid));
  line("asker_heard", status.askerHeard ? "1" : "0");
  line("allowed_sources", status.allowedSources);
  line("application_uids", status.applicationUids);
  forEachCounter(status.counters,
                 [&](const char* name, uint64_t count) { line(name, std::to_string(count)); });
  for (const UidCounters& of : status.uids) {
    std::string values = std::to_string(of.uid);
    for (const uint64_t count : {of.received, of.notHeard, of.droppedFull, of.held}) {
      values.append(" ").append(std::to_string(count));
    }
    line("uid", values);
  }
  return text;
}

Result<StatsdStatus> parseStatsdStatus(std::string_view text) {
  StatsdStatus status;
  if (text.empty()) return Error() << "the status is empty";
  while (!text.empty()) {
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    const size_t space = line.find(' ');
    if (space == std::string_view::npos ||
        !parseValue(line.substr(0, space), line.substr(space + 1), &status)) {
      return Error() << "the line \"" << line << "\" is malformed";
    }
  }
  return status;
}

Result<StatsdStatus> readStatsdStatus(std::chrono::milliseconds patience) {
  constexpr size_t kMaxBytes = size_t{64} << 10;
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
  const auto text = Torv::Base::readToEnd(fd.get(), kMaxBytes);
  if (!text.ok()) return Error() << "no answer from " << shown << ": " << text.error();
  auto status = parseStatsdStatus(*text);
  if (!status.ok()) return Error() << "the answer of " << shown << " cannot be read: " << status.error();
  return status;
}

}  // namespace libstatsd
