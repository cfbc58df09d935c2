#include "configuration/ConfigurationChain.h"

#include <cerrno>
#include <cstring>
#include <utility>

#include <android-base/unique_fd.h>
#include <android/log.h>
#include <fcntl.h>

#include "ConfigurationLog.h"
#include "configuration/DefaultConfiguration.h"
#include "configuration/JSONConfiguration.h"
#include "configuration/PreferencesConfiguration.h"
#include "os/DevicePath.h"
#include "os/Json.h"

namespace Torv {

std::optional<Json::Value> readServiceConfiguration(std::string& error) {
  const std::string path = OS::devicePath(kServiceConfigurationPath);
  const android::base::unique_fd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  std::optional<std::string> text;
  if (fd.ok()) text = OS::readJsonText(fd.get());
  if (!text) {
    error = strerror(errno);
    return std::nullopt;
  }
  auto root = OS::parseJson(*text, error);
  if (root && !root->isObject()) {
    error = "not a JSON object";
    return std::nullopt;
  }
  return root;
}

std::shared_ptr<OverridableConfiguration> buildConfigurationChain() {
  std::string error;
  std::optional<Json::Value> root = readServiceConfiguration(error);
  if (!root) {
    __android_log_print(ANDROID_LOG_ERROR, kConfigurationLogTag, "%s: %s", kServiceConfigurationPath,
                        error.c_str());
    __android_log_assert(nullptr, nullptr, "Unable to load service configuration: %s",
                         kServiceConfigurationPath);
  }
  auto defaults = std::make_unique<DefaultConfiguration>();
  auto preferences = std::make_unique<PreferencesConfiguration>(std::move(defaults),
                                                                PreferencesConfiguration::kServiceFlags);
  auto file = std::make_unique<JSONConfiguration>(std::move(*root), std::move(preferences));
  return std::make_shared<OverridableConfiguration>(std::move(file));
}

}  // namespace Torv
