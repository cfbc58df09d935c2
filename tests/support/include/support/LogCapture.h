#pragma once

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
  LogCapture();
  ~LogCapture();
  LogCapture& operator=(LogCapture&&) = delete;  // nor any other copy or move

  std::vector<LogLine> lines() const;
  // The texts of the captured messages at `priority`, in order.
  std::vector<std::string> texts(int priority) const;
  bool has(int priority, const std::string& tag, const std::string& text) const;
  size_t count(const std::string& text) const;
  void clear();
};

}  // namespace test
