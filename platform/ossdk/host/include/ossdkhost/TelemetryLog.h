#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

#include "ossdkhost/RepeatedMessage.h"

namespace platform {

// The telemetry of a runtime directory: <directory>/telemetry.jsonl, one JSON object a line. Several
// processes may write to it. Once it would pass kMaxBytes it becomes telemetry.jsonl.1, in the place of an
// earlier one, and a new one begins. Thread-safe.
class TelemetryLog {
 public:
  static constexpr char kName[] = "telemetry.jsonl";
  static constexpr size_t kMaxBytes = size_t{4} << 20;

  // Appends `line`, which ends in a newline, in a single write; with `flush` it is on disk on return. Whether
  // the whole line was written; why not is logged once.
  bool append(const std::string& directory, const std::string& line, bool flush);

 private:
  struct File;

  std::shared_ptr<File> fileIn(const std::string& directory, size_t* sizeBytes);
  std::shared_ptr<File> open(const std::string& directory);
  void rotate(const std::string& directory, size_t lineBytes);
  void complain(const std::string& message);

  std::mutex mMutex;
  std::shared_ptr<File> mFile;  // guarded by mMutex: kept open from one line to the next
  RepeatedMessage mComplaint;
};

}  // namespace platform
