#pragma once

#include <algorithm>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <android/log.h>

namespace test {

struct LogLine {
  int priority = 0;                // ANDROID_LOG_*
  std::optional<std::string> tag;  // nullopt if the message has no tag
  std::string text;

  bool operator==(const LogLine&) const = default;
};

// Captures every log message of the process, DEBUG included, from construction to destruction; none reaches
// stderr. Only one may exist at a time. Messages may come from any thread.
class LogCapture {
 public:
  LogCapture() {
    clear();
    __android_log_set_minimum_priority(ANDROID_LOG_DEBUG);
    __android_log_set_logger(&capture);
  }
  ~LogCapture() {
    __android_log_set_logger(&__android_log_stderr_logger);
    __android_log_set_minimum_priority(ANDROID_LOG_INFO);
  }
  LogCapture& operator=(LogCapture&&) = delete;  // nor any other copy or move

  std::vector<LogLine> lines() const {
    const std::lock_guard lock(sMutex);
    return sLines;
  }
  // The texts of the captured messages at `priority`, in order.
  std::vector<std::string> texts(int priority) const {
    std::vector<std::string> found;
    for (const LogLine& line : lines()) {
      if (line.priority == priority) found.push_back(line.text);
    }
    return found;
  }
  bool has(int priority, const std::string& tag, const std::string& text) const {
    const std::lock_guard lock(sMutex);
    return std::count(sLines.begin(), sLines.end(), LogLine{priority, tag, text}) > 0;
  }
  size_t count(const std::string& text) const {
    const std::lock_guard lock(sMutex);
    return std::count_if(sLines.begin(), sLines.end(),
                         [&](const LogLine& line) { return line.text == text; });
  }
  void clear() {
    const std::lock_guard lock(sMutex);
    sLines.clear();
  }

 private:
  static void capture(const __android_logger_data* data, const char* message) {
    const std::lock_guard lock(sMutex);
    sLines.push_back({data->priority, {}, message});
    if (data->tag != nullptr) sLines.back().tag = data->tag;
  }

  // Of the process, because liblog's logger is a plain function.
  static inline std::mutex sMutex;
  static inline std::vector<LogLine> sLines;
};

}  // namespace test
