#pragma once

#include <android/log.h>

namespace platform::binder {

inline constexpr char kLogTag[] = "binder";

template <typename... Args>
void logWarning(const char* format, Args... args) {
  __android_log_print(ANDROID_LOG_WARN, kLogTag, format, args...);
}

template <typename... Args>
void logError(const char* format, Args... args) {
  __android_log_print(ANDROID_LOG_ERROR, kLogTag, format, args...);
}

}  // namespace platform::binder
