#include "support/LogCapture.h"

#include <algorithm>
#include <mutex>

namespace test {
namespace {

// liblog's logger is a plain function, so what it fills is process-wide.
std::mutex gMutex;
std::vector<LogLine> gLines;

void capture(const __android_logger_data* data, const char* message) {
  std::lock_guard lock(gMutex);
  gLines.push_back({data->priority, {}, message});
  if (data->tag != nullptr) gLines.back().tag = data->tag;
}

}  // namespace

LogCapture::LogCapture() {
  clear();
  __android_log_set_minimum_priority(ANDROID_LOG_DEBUG);
  __android_log_set_logger(&capture);
}

LogCapture::~LogCapture() {
  __android_log_set_logger(&__android_log_stderr_logger);
  __android_log_set_minimum_priority(ANDROID_LOG_INFO);
}

std::vector<LogLine> LogCapture::lines() const {
  std::lock_guard lock(gMutex);
  return gLines;
}

std::vector<std::string> LogCapture::texts(int priority) const {
  std::vector<std::string> found;
  for (const LogLine& line : lines()) {
    if (line.priority == priority) found.push_back(line.text);
  }
  return found;
}

bool LogCapture::has(int priority, const std::string& tag, const std::string& text) const {
  const std::vector<LogLine> all = lines();
  return std::count(all.begin(), all.end(), LogLine{priority, tag, text}) > 0;
}

size_t LogCapture::count(const std::string& text) const {
  const std::vector<LogLine> all = lines();
  return std::count_if(all.begin(), all.end(), [&](const LogLine& line) { return line.text == text; });
}

void LogCapture::clear() {
  std::lock_guard lock(gMutex);
  gLines.clear();
}

}  // namespace test
