#include "AgedValue.h"

#include <cerrno>
#include <cstring>
#include <memory>
#include <sstream>

#include <android/log.h>
#include <json/json.h>

#include "base/Clock.h"

namespace Torv::OS::Diagnostics {
namespace {

constexpr char kTag[] = "libdiagnostics-storage";
constexpr int64_t kNsPerMs = 1'000'000;

// JSON on one line, without spaces. Reading the settings costs more than writing a value, so each thread
// keeps a writer.
std::string writeCompact(const Json::Value& json) {
  thread_local const std::unique_ptr<Json::StreamWriter> writer = [] {
    Json::StreamWriterBuilder settings;
    settings["indentation"] = "";
    return std::unique_ptr<Json::StreamWriter>(settings.newStreamWriter());
  }();
  std::ostringstream text;
  writer->write(json, &text);
  return text.str();
}

}  // namespace

int64_t bootTimeMs(int (*readClock)(clockid_t, timespec*)) {
  timespec now{};
  if (readClock(CLOCK_BOOTTIME, &now) != 0) {
    __android_log_print(ANDROID_LOG_ERROR, kTag, "error getting time: %s", strerror(errno));
    return 0;
  }
  return static_cast<int64_t>(Base::toReportMilliseconds(now));
}

std::optional<std::string> agedValue(int64_t timestampNs, std::string_view value, int64_t nowMs) {
  const int64_t ageMs = nowMs - timestampNs / kNsPerMs;
  if (ageMs < 0) return std::nullopt;
  Json::Value json(Json::objectValue);
  json["v"] = Json::Value(value.data(), value.data() + value.size());
  json["dt_ms"] = static_cast<Json::UInt64>(ageMs);
  return writeCompact(json);
}

}  // namespace Torv::OS::Diagnostics
