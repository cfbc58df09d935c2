#include "PsiCollector.h"

#include <string_view>
#include <utility>

#include <android/log.h>
#include <fmt/format.h>

#include "PsiText.h"
#include "TextScanner.h"

namespace Torv::OS::Diagnostics {
namespace {

constexpr char kCpu[] = "cpu";
constexpr char kMemory[] = "memory";
constexpr char kIo[] = "io";

// The names of the two lines' metrics, made once; they are what nearly every sample needs.
struct MetricNames {
  Json::StaticString avg10;
  Json::StaticString avg60;
  Json::StaticString avg300;
  Json::StaticString total;
};
const MetricNames kSome{Json::StaticString("some_avg10"), Json::StaticString("some_avg60"),
                        Json::StaticString("some_avg300"), Json::StaticString("some_total")};
const MetricNames kFull{Json::StaticString("full_avg10"), Json::StaticString("full_avg60"),
                        Json::StaticString("full_avg300"), Json::StaticString("full_total")};

void writeMetrics(const PsiLine& line, const MetricNames& names, Json::Value& out) {
  out[names.avg10] = line.avg10;
  out[names.avg60] = line.avg60;
  out[names.avg300] = line.avg300;
  out[names.total] = Json::Value::UInt64{line.total};
}

void writeOddMetrics(const PsiLine& line, const char* type, Json::Value& out) {
  out[fmt::format("{}_{}", type, "avg10")] = line.avg10;
  out[fmt::format("{}_{}", type, "avg60")] = line.avg60;
  out[fmt::format("{}_{}", type, "avg300")] = line.avg300;
  out[fmt::format("{}_{}", type, "total")] = Json::Value::UInt64{line.total};
}

template <typename Collector>
std::unique_ptr<Collector> makeCollector(const SystemStateCollectorConfig& config,
                                         std::optional<TextSource> source) {
  if (!source) return nullptr;
  return std::make_unique<Collector>(config, std::move(*source));
}

}  // namespace

PsiCollector::PsiCollector(const SystemStateCollectorConfig& config, std::string resourceName,
                           TextSource source)
    : TextCollector(config, std::move(source), Evaluate::NewestFirst),
      mResourceName(std::move(resourceName)) {}

std::string PsiCollector::getDescription() const {
  return fmt::format("Returns the PSI information by sampling {} file in /proc/pressure", mResourceName);
}

std::optional<TextSource> PsiCollector::init(const std::string& resourceName) {
  return TextSource::open("/proc/pressure/" + resourceName);
}

std::string PsiCollector::historyName() const {
  return fmt::format("psi_{}_history", mResourceName);
}

void PsiCollector::logBadStream() const {
  __android_log_print(ANDROID_LOG_ERROR, nullptr, "PSI %s Stream is bad", mResourceName.c_str());
}

void PsiCollector::extractMetrics(const RawMetric& sample, Json::Value& out) {
  std::string_view text = sample.text;
  std::string_view line;
  while (nextLine(text, line)) {
    if (line.empty()) continue;
    const PsiLine psi = parsePsiLine(line);
    const std::string_view type = psi.type.data();
    if (type == "some") {
      writeMetrics(psi, kSome, out);
    } else if (type == "full") {
      writeMetrics(psi, kFull, out);
    } else {
      writeOddMetrics(psi, psi.type.data(), out);
    }
  }
}

std::unique_ptr<PsiCpuCollector> PsiCpuCollector::init(SystemStateCollectorConfig config) {
  return makeCollector<PsiCpuCollector>(config, PsiCollector::init(kCpu));
}

PsiCpuCollector::PsiCpuCollector(const SystemStateCollectorConfig& config, TextSource source)
    : PsiCollector(config, kCpu, std::move(source)) {}

uint8_t PsiCpuCollector::getId() const {
  return 1;
}

std::unique_ptr<PsiMemCollector> PsiMemCollector::init(SystemStateCollectorConfig config) {
  return makeCollector<PsiMemCollector>(config, PsiCollector::init(kMemory));
}

PsiMemCollector::PsiMemCollector(const SystemStateCollectorConfig& config, TextSource source)
    : PsiCollector(config, kMemory, std::move(source)) {}

uint8_t PsiMemCollector::getId() const {
  return 2;
}

std::unique_ptr<PsiIoCollector> PsiIoCollector::init(SystemStateCollectorConfig config) {
  return makeCollector<PsiIoCollector>(config, PsiCollector::init(kIo));
}

PsiIoCollector::PsiIoCollector(const SystemStateCollectorConfig& config, TextSource source)
    : PsiCollector(config, kIo, std::move(source)) {}

uint8_t PsiIoCollector::getId() const {
  return 3;
}

}  // namespace Torv::OS::Diagnostics
