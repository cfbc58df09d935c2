#include "TextCollector.h"

#include <android/log.h>

namespace Torv::OS::Diagnostics {

TextCollector::TextCollector(const SystemStateCollectorConfig& config, const SourceInfo& info,
                             TextSource source)
    : SampledCollector(config, info), mSource(std::move(source)) {}

bool TextCollector::collectSystemStateData() {
  if (mSource.isBad()) {
    __android_log_print(ANDROID_LOG_ERROR, nullptr, "%s", mInfo.badStreamMessage);
    return false;
  }
  const Base::LockGuard lock(mMutex);
  TextSample& sample = mBuffer.reserve();
  sample.timeMs = Utils::monotonicMilliseconds();
  const bool wasReadable = std::exchange(mIsReadable, mSource.readInto(sample.text));
  if (wasReadable && !mIsReadable) {
    __android_log_print(ANDROID_LOG_ERROR, nullptr,
                        "Cannot read %s, or it is larger than %zu bytes; its samples are empty", mInfo.path,
                        TextSource::kMaxTextBytes);
  }
  return true;
}

}  // namespace Torv::OS::Diagnostics
