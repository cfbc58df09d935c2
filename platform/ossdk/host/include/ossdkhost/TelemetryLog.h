#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "base/Mutex.h"

namespace platform {

// The telemetry of a runtime directory: <directory>/telemetry.jsonl, one JSON object a line. If a line would
// make it larger than kMaxBytes, the file is renamed to telemetry.jsonl.1, which replaces an older one, and a
// new file begins. Several processes may write to it; then it may exceed the limit by kReopenBytes for each.
// Thread-safe.
class TelemetryLog {
 public:
  static constexpr char kName[] = "telemetry.jsonl";
  static constexpr size_t kMaxBytes = size_t{4} << 20;
  // The file is opened anew after this many bytes of this process, or after 50 ms. That another process has
  // written to it, renamed it or removed it is noticed then.
  static constexpr size_t kReopenBytes = size_t{64} << 10;

  // Appends `line`, which ends in a newline, in a single write; with `flush`, returns when it is on disk.
  // Returns false if not the whole line was written; the reason is logged once, until a line is written
  // again. Never waits for another process: a rotation that fails, or that another process holds up, is
  // logged once, tried again with each next line, and counted; the line that ends it gives the count.
  bool append(const std::string& directory, const std::string& line, bool flush);

 private:
  struct File;

  // Both return the file, opened a moment ago or now, or null, with errno, if it cannot be opened.
  std::shared_ptr<File> fileIn(const std::string& directory);
  std::shared_ptr<File> open(const std::string& directory);
  void rotate(const std::string& directory, size_t lineBytes);
  bool fail(const std::string& problem);

  Torv::Base::Mutex mMutex;
  std::shared_ptr<File> mFile GUARDED_BY(mMutex);  // kept open from one line to the next
  std::atomic<bool> mTorn{false};                  // only a part of the last line was written
  std::atomic<bool> mFailing{false};               // the last line was not written, which has been logged
  std::atomic<uint64_t> mRotationsPutOff{0};       // since the last rotation
};

}  // namespace platform
