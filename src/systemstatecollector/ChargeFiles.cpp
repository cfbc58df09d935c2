#include "ChargeFiles.h"

#include <android/log.h>

#include "os/DevicePath.h"

namespace Torv::OS::Diagnostics {
namespace {

constexpr char kChargeCounterPath[] = "/sys/class/power_supply/battery/charge_counter";
constexpr char kChargeFullPath[] = "/sys/class/power_supply/battery/charge_full";

}  // namespace

std::optional<long> readNumberFromStart(std::FILE* file) {
  // Some C libraries rewind within what they have buffered: without this, the first number would stay for
  // ever.
  std::fflush(file);
  std::rewind(file);
  long value = 0;
  // Not a number is the same as 0 here, and a number out of range the nearest in it.
  // NOLINTNEXTLINE(cert-err34-c)
  (void)std::fscanf(file, "%ld", &value);
  if (std::feof(file) != 0 || std::ferror(file) != 0) return std::nullopt;
  return value;
}

ChargeFiles& ChargeFiles::ofProcess() {
  // Never destroyed: collectors may read until the process is gone.
  static ChargeFiles& files = *std::make_unique<ChargeFiles>().release();
  return files;
}

bool ChargeFiles::open() {
  Base::LockGuard lock(mMutex);
  return openOnce(mChargeCounter, kChargeCounterPath) && openOnce(mChargeFull, kChargeFullPath);
}

std::optional<float> ChargeFiles::readRatio() {
  Base::LockGuard lock(mMutex);
  if (!mChargeCounter.file || !mChargeFull.file) return std::nullopt;
  const auto counter = readNumberFromStart(mChargeCounter.file.get());
  if (!counter) return std::nullopt;
  const auto full = readNumberFromStart(mChargeFull.file.get());
  if (!full || *full == 0) return std::nullopt;
  return static_cast<float>(*counter) / static_cast<float>(*full);
}

void ChargeFiles::release() {
  Base::LockGuard lock(mMutex);
  mChargeFull = Slot{};
}

bool ChargeFiles::openOnce(Slot& slot, const char* path) {
  if (!slot.tried) {
    slot.tried = true;
    slot.file.reset(std::fopen(OS::devicePath(path).c_str(), "re"));
  }
  if (!slot.file) __android_log_print(ANDROID_LOG_ERROR, nullptr, "Failed to open %s", path);
  return slot.file != nullptr;
}

}  // namespace Torv::OS::Diagnostics
