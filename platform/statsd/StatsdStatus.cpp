#include "statsd/StatsdStatus.h"

#include <type_traits>

#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include "base/Files.h"
#include "base/Json.h"
#include "runtime/RuntimeDirectory.h"
#include "runtime/SocketPath.h"

namespace libstatsd {

using android::base::ErrnoError;
using android::base::Error;
using android::base::Result;

namespace {

// These two call visit(name, value) for each value of an object in the document.
template <typename Status, typename Visit>
void forEachValue(Status& status, const Visit& visit) {
  visit("service_pid", status.servicePid);
  visit("service_uid", status.serviceUid);
  visit("asker_uid", status.askerUid);
  visit("asker_heard", status.askerHeard);
  visit("allowed_sources", status.allowedSources);
  visit("application_uids", status.applicationUids);
  forEachCounter(status.counters, visit);
}

template <typename Counters, typename Visit>
void forEachValueOfUid(Counters& uid, const Visit& visit) {
  visit("uid", uid.uid);
  visit("received", uid.received);
  visit("not_heard", uid.notHeard);
  visit("dropped_full", uid.droppedFull);
  visit("held", uid.held);
}

auto writingTo(Json::Value& object) {
  return [&object](const char* name, const auto& value) { object[name] = value; };
}

// Puts the name of a value that is missing, or that is not of its type, into `wrong`.
auto readingFrom(const Json::Value& object, std::string& wrong) {
  return [&object, &wrong](const char* name, auto& value) {
    using Value = std::remove_reference_t<decltype(value)>;
    const Json::Value* member = Torv::Base::findMember(object, name);
    if (member == nullptr || !member->is<Value>()) {
      wrong = name;
    } else {
      value = member->as<Value>();
    }
  };
}

}  // namespace

Json::Value toJson(const StatsdStatus& status) {
  Json::Value document(Json::objectValue);
  forEachValue(status, writingTo(document));
  Json::Value& uids = document["uids"] = Json::Value(Json::arrayValue);
  for (const UidCounters& uid : status.uids)
    forEachValueOfUid(uid, writingTo(uids.append(Json::objectValue)));
  return document;
}

Result<StatsdStatus> parseStatsdStatus(std::string_view text) {
  auto document = Torv::Base::parseJson(text, Torv::Base::JsonRules::Strict);
  if (!document.ok()) return document.error();
  StatsdStatus status;
  std::string wrong;
  forEachValue(status, readingFrom(*document, wrong));
  const Json::Value* uids = Torv::Base::findMember(*document, "uids");
  if (uids == nullptr || !uids->isArray()) return Error() << "uids is missing or no array";
  for (const Json::Value& uid : *uids) forEachValueOfUid(status.uids.emplace_back(), readingFrom(uid, wrong));
  if (!wrong.empty()) return Error() << wrong << " is missing or has the wrong type";
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
