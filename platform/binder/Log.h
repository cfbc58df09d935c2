#pragma once

#include <cstdarg>

#include <android/log.h>

namespace platform::binder {

inline constexpr char kLogTag[] = "binder";

[[gnu::format(printf, 1, 2)]] inline void logWarning(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  __android_log_vprint(ANDROID_LOG_WARN, kLogTag, format, arguments);
  va_end(arguments);
}

[[gnu::format(printf, 1, 2)]] inline void logError(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  __android_log_vprint(ANDROID_LOG_ERROR, kLogTag, format, arguments);
  va_end(arguments);
}

// Ends the process: nothing here implements IBinder::attachObject(), and a caller that did not notice would
// lose its object.
[[noreturn]] inline void refuseAttachedObjects() {
  __android_log_assert(nullptr, kLogTag, "binders have no attached objects here");
}

}  // namespace platform::binder
