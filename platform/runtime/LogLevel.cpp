#include "runtime/LogLevel.h"

#include <array>
#include <cstdlib>
#include <string_view>
#include <utility>

#include <android/log.h>

namespace platform {

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

}  // namespace platform
