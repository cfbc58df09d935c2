#pragma once

#include <cstdio>
#include <memory>
#include <optional>

#include "base/Mutex.h"

namespace Torv::OS::Diagnostics {

// The number that the file begins with, read anew; 0 where that is no number. Empty where reading it hit the
// end of the file or failed.
std::optional<long> readNumberFromStart(std::FILE* file);

// The two files of the battery's charge, shared by all battery collectors of the process. Thread-safe.
class ChargeFiles {
 public:
  using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

  // The process's own, open until it ends.
  static ChargeFiles& ofProcess();

  // Opens each file that was not tried before, the charge counter first; a file that could not be opened is
  // not tried again. False, with an error log that names the first one missing, where the two are not both
  // open.
  bool open() EXCLUDES(mMutex);

  // The charge counter as a share of the full charge, read anew. Empty where the full charge is 0, a file is
  // not open or cannot be read, or a number ends with its file: the kernel ends it with a newline, so that
  // text was torn. A text that is no number at all counts as 0.
  std::optional<float> readRatio() EXCLUDES(mMutex);

  // Closes the file of the full charge and forgets it, so that open() tries it anew. The charge counter's
  // stays open.
  void release() EXCLUDES(mMutex);

 private:
  struct Slot {
    bool tried = false;
    File file{nullptr, &std::fclose};
  };

  static bool openOnce(Slot& slot, const char* path);

  // Held while reading: the position of a shared stream belongs to the reading.
  Base::Mutex mMutex;
  Slot mChargeCounter GUARDED_BY(mMutex);
  Slot mChargeFull GUARDED_BY(mMutex);
};

}  // namespace Torv::OS::Diagnostics
