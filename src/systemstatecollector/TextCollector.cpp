#include "TextCollector.h"

#include <utility>

#include <android/log.h>

#include "HistoryReport.h"
#include "os/DevicePath.h"

namespace Torv::OS::Diagnostics {
namespace {

// Puts the whole file into `text`, which keeps its capacity; an empty text where any read fails. The bytes go
// from the stream's buffer straight to the text. They are asked for only as far as they lie in that buffer:
// peek() keeps a failed read to a state bit, sgetn() would throw it.
void readFromStart(std::ifstream& stream, std::string& text) {
  text.clear();
  stream.clear();
  stream.seekg(0);
  while (stream.peek() != std::ifstream::traits_type::eof()) {
    const size_t held = text.size();
    const std::streamsize ready = stream.rdbuf()->in_avail();
    text.resize(held + static_cast<size_t>(ready));
    stream.rdbuf()->sgetn(&text[held], ready);
  }
  if (stream.rdstate() != std::ios::eofbit) text.clear();
  stream.clear();
}

}  // namespace

TextCollector::TextCollector(const SystemStateCollectorConfig& config, std::ifstream stream)
    : SystemStateCollector(config),
      mStream(std::move(stream)),
      mBuffer(std::make_unique<CircularBuffer<RawMetric>>(config.getMaxSamples())) {}

bool TextCollector::collectSystemStateData() {
  if (mStream.bad()) {
    logBadStream();
    return false;
  }
  OS::LockGuard lock(mMutex);
  RawMetric& sample = mBuffer->reserve();
  sample.timeMs = Utils::monotonicMilliseconds();
  readFromStart(mStream, sample.text);
  return true;
}

std::unique_ptr<SystemStateCollector::History> TextCollector::dumpSystemStateHistory() {
  const uint64_t nowMs = Utils::monotonicMilliseconds();
  std::vector<RawMetric> samples(getMaxSamples());
  readFromCircularBuffer(samples);
  return makeHistory(historyName(), nowMs, samples, [this](const RawMetric& sample, Json::Value& metrics) {
    extractMetrics(sample, metrics);
  });
}

std::optional<std::ifstream> TextCollector::openSource(const std::string& path) {
  std::ifstream stream(devicePath(path));
  if (!stream.is_open()) {
    __android_log_print(ANDROID_LOG_ERROR, nullptr, "Failed to open %s", path.c_str());
    return std::nullopt;
  }
  return stream;
}

uint64_t TextCollector::readFromCircularBuffer(std::vector<RawMetric>& out) const {
  OS::LockGuard lock(mMutex);
  out.resize(mBuffer->size());
  return mBuffer->readAll(out.begin());
}

}  // namespace Torv::OS::Diagnostics
