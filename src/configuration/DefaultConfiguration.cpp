#include "configuration/DefaultConfiguration.h"

#include <utility>

#include "configuration/ConfigurationKeys.h"

namespace Torv {
namespace {

namespace keys = ConfigurationKeys;

// A placeholder: an image sets the real address in its configuration file.
constexpr char kDefaultUrl[] = "https://crash-report.pellux-os.example.com/upload/v1/os-crashes";

template <typename Value>
Value valueOr(const std::map<std::string, Value>& values, const std::string& key, Value fallback) {
  const auto found = values.find(key);
  return found != values.end() ? found->second : std::move(fallback);
}

}  // namespace

DefaultConfiguration::DefaultConfiguration()
    : mStrings{{keys::kPstoreDirName, "/sys/fs/pstore"},
               {keys::kReportDirName, "/data/misc/crashes/"},
               {keys::kAppId, ""},
               {keys::kUserAgent, "pellux/os"},
               {keys::kUrl, kDefaultUrl},
               {keys::kUuidFilename, "/data/misc/crashes/uuid"},
               {keys::kUploadCipherList, ""},
               {keys::kUploadCaCertificates, ""},
               {keys::kUploadCertPinningKey, ""},
               {keys::kHeaders, ""},
               {keys::kReportSource, ""},
               {keys::kReportSourceRef, ""}},
      mBools{{keys::kLocalBuildEnable, false},
             {keys::kLogcatEnable, true},
             {keys::kUploadCertVerifyPeer, true},
             {keys::kWtfReportEnable, false},
             {keys::kInvokeExitTelemetryEnable, false}},
      mUints{{keys::kUploadInitialRetryDelay, 60},
             {keys::kUploadMaxRetryDelay, 3600},
             {keys::kUploadDelayAfterBoot, 30},
             {keys::kMaxCrashesInReportDir, 25},
             {keys::kRetainReportFor, 0}},
      mInts{{keys::kLogcatTailCount, -1},
            {keys::kLogcatTailSeconds, 120},
            {keys::kRateLimitTimeWindow, 1440},
            {keys::kRateLimitMaxCrashes, 25},
            {keys::kRateLimitMaxCrashesPerProcess, 20}},
      mStringMaps{{keys::kErrorExtraData, {}}} {}

std::string DefaultConfiguration::getString(const std::string& key) const {
  return valueOr(mStrings, key, std::string());
}

uint16_t DefaultConfiguration::getUint(const std::string& key) const {
  return valueOr(mUints, key, uint16_t{0});
}

int32_t DefaultConfiguration::getInt(const std::string& key) const {
  return valueOr(mInts, key, -1);
}

bool DefaultConfiguration::getBool(const std::string& key) const {
  return valueOr(mBools, key, false);
}

std::map<std::string, std::string> DefaultConfiguration::getLocalStrMap(const std::string& key) const {
  return valueOr(mStringMaps, key, {});
}

}  // namespace Torv
