#include "Json.h"

#include <charconv>

#include <json/writer.h>

#include "base/Json.h"

namespace timeline {

using android::base::Error;
using android::base::Result;
using Torv::Base::findMember;

// The bound keeps sums of two times, and times in nanoseconds, within 64 bits, whatever a file says.
bool isTime(const Json::Value& json) {
  constexpr int64_t kMost = int64_t{1} << 43;  // some 278 years; in nanoseconds it still fits
  return json.isInt64() && json.asInt64() >= 0 && json.asInt64() <= kMost;
}

// All three readings are always written: none can be computed from the others after a suspend or a set clock.
Json::Value toJson(const Clocks& clocks) {
  Json::Value json(Json::objectValue);
  json["boot_ms"] = Json::Int64{clocks.bootMs};
  json["monotonic_ms"] = Json::Int64{clocks.monotonicMs};
  json["wall_ms"] = Json::Int64{clocks.wallMs};
  return json;
}

// All three or none: a timeline without the wall clock could not say when anything happened.
Result<Clocks> clocksFrom(const Json::Value& json) {
  Clocks clocks;
  for (const auto& [name, target] :
       {std::pair("boot_ms", &clocks.bootMs), std::pair("monotonic_ms", &clocks.monotonicMs),
        std::pair("wall_ms", &clocks.wallMs)}) {
    const Json::Value* const value = findMember(json, name);
    if (value == nullptr || !isTime(*value)) {
      return Error() << name << " is missing or is no time";
    }
    *target = value->asInt64();
  }
  return clocks;
}

Json::Value toJson(const Texts& texts) {
  Json::Value json(Json::objectValue);
  for (const auto& [key, value] : texts) json[key] = value;
  return json;
}

// A crash report nests the values that are JSON documents. They are texts again here, though not to the byte.
Result<Texts> textsFrom(const Json::Value& json) {
  if (!json.isObject()) return Error() << "keys and values are no object";
  Texts texts;
  for (auto value = json.begin(); value != json.end(); ++value) {
    texts[value.name()] = value->isString() ? value->asString() : compact(*value);
  }
  return texts;
}

Json::Value toJson(const std::map<int32_t, Texts>& processes) {
  Json::Value json(Json::objectValue);
  for (const auto& [pid, states] : processes) json[std::to_string(pid)] = toJson(states);
  return json;
}

// One bad process refuses the whole line, because a picture with a hole looks like a process that is gone.
Result<std::map<int32_t, Texts>> processesFrom(const Json::Value& json) {
  if (!json.isObject()) return Error() << "the processes are no object";
  std::map<int32_t, Texts> processes;
  for (auto process = json.begin(); process != json.end(); ++process) {
    const std::optional<int32_t> pid = parsePid(process.name());
    if (!pid) return Error() << "a process has a name that is no pid";
    auto states = textsFrom(*process);
    if (!states.ok()) return Error() << states.error();
    processes[*pid] = *std::move(states);
  }
  return processes;
}

// Pids are the claims of publishers, so negative ones and 0 occur.
std::optional<int32_t> parsePid(const std::string& text) {
  int32_t pid = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), pid);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return pid;
}

// ASCII: whatever bytes an application publishes, the line stays valid JSON.
std::string compact(const Json::Value& json) {
  Json::StreamWriterBuilder settings;
  settings["indentation"] = "";
  settings["precision"] = 15;  // what a double holds for certain: 93.6 and not 93.599999999999994
  return Json::writeString(settings, json);
}

// The pointer is valid as long as `json` is neither changed nor destroyed.
Result<const Json::Value*> requiredObject(const Json::Value& json, const char* name) {
  const Json::Value* const value = findMember(json, name);
  if (value == nullptr || !value->isObject()) return Error() << name << " is missing or is no object";
  return value;
}

// A version that is not known is refused and not guessed at. Members that are not known are no new version:
// readers pass them over.
Result<void> requireFormat(const Json::Value& json, const char* format, int version) {
  const Json::Value* const saidFormat = findMember(json, "format");
  const Json::Value* const saidVersion = findMember(json, "version");
  if (saidFormat == nullptr || !saidFormat->isString() || saidFormat->asString() != format) {
    return Error() << "format is not " << format;
  }
  if (saidVersion == nullptr || !saidVersion->isInt() || saidVersion->asInt() != version) {
    return Error() << "this program knows version " << version << " of " << format << " only";
  }
  return {};
}

}  // namespace timeline
