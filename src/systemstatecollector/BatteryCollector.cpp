#include "BatteryCollector.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <limits>
#include <utility>

#include <android/log.h>
#include <unistd.h>

#include "TextScanner.h"
#include "base/Files.h"
#include "os/DevicePath.h"

namespace Torv::OS::Diagnostics {
namespace {

constexpr SourceInfo kChargeCounter{5, "/sys/class/power_supply/battery/charge_counter",
                                    "battery_state_history", "Provides battery stats", ""};
constexpr char kChargeFullPath[] = "/sys/class/power_supply/battery/charge_full";
const Json::StaticString kCharge("BatteryCharge_%");

// Reads the number that the file begins with. The buffer is longer than any 64-bit number.
std::optional<int64_t> readNumber(const android::base::unique_fd& file) {
  std::array<char, 64> text;
  const ssize_t length = TEMP_FAILURE_RETRY(pread(file.get(), text.data(), text.size(), 0));
  if (length < 0) return std::nullopt;
  return BatteryCollector::parseNumber({text.data(), static_cast<size_t>(length)});
}

}  // namespace

ChargeFiles& ChargeFiles::ofProcess() {
  // Not destroyed at exit, because a collector may still be reading then.
  static ChargeFiles& files = *std::make_unique<ChargeFiles>().release();
  return files;
}

bool ChargeFiles::open() {
  const Base::LockGuard lock(mMutex);
  return openOnce(mChargeCounter, kChargeCounter.path) && openOnce(mChargeFull, kChargeFullPath);
}

std::optional<float> ChargeFiles::readRatio() {
  const Base::LockGuard lock(mMutex);
  const auto counter = readNumber(mChargeCounter.file);
  if (!counter) return std::nullopt;
  const auto full = readNumber(mChargeFull.file);
  if (!full || *full == 0) return std::nullopt;
  return static_cast<float>(*counter) / static_cast<float>(*full);
}

void ChargeFiles::release() {
  const Base::LockGuard lock(mMutex);
  mChargeFull = Slot{};
}

bool ChargeFiles::openOnce(Slot& slot, const char* path) {
  if (!std::exchange(slot.tried, true)) {
    auto file = Base::openForReading(devicePath(path));
    if (file.ok()) slot.file = std::move(*file);
  }
  if (!slot.file.ok()) __android_log_print(ANDROID_LOG_ERROR, nullptr, "Failed to open %s", path);
  return slot.file.ok();
}

std::optional<int64_t> BatteryCollector::parseNumber(std::string_view text) {
  skipSpace(text);
  if (text.empty()) return std::nullopt;
  // Unlike scanf, from_chars takes no plus sign.
  if (text.size() > 1 && text[0] == '+' && isDigit(text[1])) text.remove_prefix(1);
  int64_t value = 0;
  if (std::from_chars(text.data(), text.data() + text.size(), value).ec == std::errc::result_out_of_range) {
    using Limits = std::numeric_limits<int64_t>;
    return text.front() == '-' ? Limits::min() : Limits::max();
  }
  return value;
}

bool BatteryCollector::collectSystemStateData() {
  const Base::LockGuard lock(mMutex);
  BatterySample& sample = mBuffer.reserve();
  sample.timeMs = Utils::monotonicMilliseconds();
  if (const auto ratio = mFiles.readRatio()) sample.chargeRatio = *ratio;
  return true;
}

void BatteryCollector::extractMetrics(const RawMetric& sample, Json::Value& out) {
  out[kCharge] = sample.chargeRatio * 100.0;
}

std::unique_ptr<BatteryCollector> BatteryCollector::init(SystemStateCollectorConfig config) {
  return init(config, ChargeFiles::ofProcess());
}

std::unique_ptr<BatteryCollector> BatteryCollector::init(SystemStateCollectorConfig config,
                                                         ChargeFiles& files) {
  if (!files.open()) return nullptr;
  return std::make_unique<BatteryCollector>(config, files);
}

BatteryCollector::BatteryCollector(const SystemStateCollectorConfig& config, ChargeFiles& files)
    : SampledCollector(config, kChargeCounter), mFiles(files) {}

BatteryCollector::~BatteryCollector() {
  mFiles.release();
}

}  // namespace Torv::OS::Diagnostics
