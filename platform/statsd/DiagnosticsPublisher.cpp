#include "statsd/diagnostics_publisher.h"

#include <cerrno>

#include <unistd.h>

#include "statsd/StatsEventWriter.h"

namespace {

// Never destroyed: threads may publish until the process is gone.
libstatsd::StatsEventWriter& writer() {
  static auto& shared = *new libstatsd::StatsEventWriter();
  return shared;
}

int negatedErrno(libstatsd::WriteResult result) {
  switch (result) {
    case libstatsd::WriteResult::Sent:
      return 0;
    case libstatsd::WriteResult::TooLarge:
      return -EMSGSIZE;
    case libstatsd::WriteResult::QueueFull:
      return -EAGAIN;
    case libstatsd::WriteResult::NoService:
      break;
  }
  return -ENOTCONN;
}

}  // namespace

int diagnostics_publish_state(int32_t pid, const char* key, const char* value) {
  if (key == nullptr || value == nullptr) return -EINVAL;
  return negatedErrno(writer().publishApplicationState(pid != 0 ? pid : getpid(), key, value));
}

int diagnostics_publish_session(const char* service_session_id, const char* user_active_session_id) {
  if (service_session_id == nullptr || user_active_session_id == nullptr) return -EINVAL;
  return negatedErrno(writer().publishTelemetrySession(service_session_id, user_active_session_id));
}
