#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "base/Mutex.h"
#include "ossdkhost/RepeatedMessage.h"

namespace platform {

// The telemetry of a runtime directory: <directory>/telemetry.jsonl, one JSON object a line. Several
// processes may write to it. If a line would make it larger than kMaxBytes, the file is renamed to
// telemetry.jsonl.1, which replaces an older one, and a new file begins. Thread-safe.
class TelemetryLog {
 public:
  static constexpr char kName[] = "telemetry.jsonl";
  static constexpr size_t kMaxBytes = size_t{4} << 20;

  // Appends `line`, which ends in a newline, in a single write; with `flush`, returns when it is on disk.
  // Returns false if not the whole line was written; the reason is logged once. Never waits for another
  // process: a rotation that another one holds up is tried again with the next line, and counted.
  bool append(const std::string& directory, const std::string& line, bool flush);

 private:
  struct File;

  std::shared_ptr<File> fileIn(const std::string& directory, size_t* sizeBytes);
  std::shared_ptr<File> open(const std::string& directory);
  void rotate(const std::string& directory, size_t lineBytes);
  void complain(const std::string& message);

  Torv::Base::Mutex mMutex;
  std::shared_ptr<File> mFile GUARDED_BY(mMutex);  // kept open from one line to the next
  std::atomic<uint64_t> mRotationsPutOff{0};       // since the last rotation
  RepeatedMessage mComplaint;
};

}  // namespace platform
