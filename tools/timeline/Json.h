// The parts that the JSON of crash reports and of recordings have in common.
#pragma once

#include <map>
#include <optional>
#include <string>

#include <android-base/result.h>
#include <json/value.h>

#include "timeline/Sources.h"

namespace timeline {

inline constexpr char kReportFormat[] = "diagnostics-crash-report";
inline constexpr char kRecordingFormat[] = "diagnostics-recording";
inline constexpr int kReportVersion = 1;
inline constexpr int kRecordingVersion = 1;

// True for a number of milliseconds that is neither negative nor so large that a sum of times would overflow.
bool isTime(const Json::Value& json);

// {"boot_ms": .., "monotonic_ms": .., "wall_ms": ..}
Json::Value toJson(const Clocks& clocks);
[[nodiscard]] android::base::Result<Clocks> clocksFrom(const Json::Value& json);

// {"<pid>": {"<key>": "value", ..}, ..}. A value that is no string counts as its JSON text.
Json::Value toJson(const std::map<int32_t, Texts>& processes);
[[nodiscard]] android::base::Result<std::map<int32_t, Texts>> processesFrom(const Json::Value& json);

// {"<key>": "value", ..}, the same for one level.
Json::Value toJson(const Texts& texts);
[[nodiscard]] android::base::Result<Texts> textsFrom(const Json::Value& json);

[[nodiscard]] std::optional<int32_t> parsePid(const std::string& text);

// `json` on one line, in ASCII, without a newline at the end.
std::string compact(const Json::Value& json);

// The member if it has the wanted type, else an error that names it.
[[nodiscard]] android::base::Result<const Json::Value*> requiredObject(const Json::Value& json,
                                                                       const char* name);

// An error if the document does not say `format` and `version`.
[[nodiscard]] android::base::Result<void> requireFormat(const Json::Value& json, const char* format,
                                                        int version);

}  // namespace timeline
