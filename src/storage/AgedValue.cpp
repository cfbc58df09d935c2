#include "AgedValue.h"

#include <cerrno>
#include <cstring>
#include <memory>
#include <sstream>

#include <android/log.h>
#include <json/json.h>

namespace Torv::OS::Diagnostics {
namespace {

constexpr char kTag[] = "libdiagnostics-storage";
constexpr int64_t kNsPerMs = 1'000'000;

// A writer of compact JSON. Its settings are costly to read, so a thread reads them once.
Json::StreamWriter& compactWriter() {
  thread_local const std::unique_ptr<Json::StreamWriter> writer = [] {
    Json::StreamWriterBuilder settings;
    settings["indentation"] = "";
    return std::unique_ptr<Json::StreamWriter>(settings.newStreamWriter());
  }();
  return *writer;
}

}  // namespace

int64_t bootTimeMs(int (*readClock)(clockid_t, timespec*)) {
  timespec now{};
  if (readClock(CLOCK_BOOTTIME, &now) != 0) {
    __android_log_print(ANDROID_LOG_ERROR, kTag, "error getting time: %s", strerror(errno));
    return 0;
  }
  const int64_t nowNs = now.tv_sec * INT64_C(1'000'000'000) + now.tv_nsec;
  const auto nowUs = static_cast<uint64_t>(static_cast<double>(nowNs) * 0.001);
  return static_cast<int64_t>(nowUs / 1000);
}

std::optional<std::string> agedValue(const State::Entry& entry, int64_t nowMs) {
  const int64_t ageMs = nowMs - entry.timestamp / kNsPerMs;
  if (ageMs < 0) return std::nullopt;
  Json::Value json(Json::objectValue);
  json["v"] = entry.value;
  json["dt_ms"] = static_cast<Json::UInt64>(ageMs);
  std::ostringstream text;
  compactWriter().write(json, &text);
  return text.str();
}

}  // namespace Torv::OS::Diagnostics
