#include "configuration/ConfigurationChain.h"

#include <utility>

#include <android/log.h>

#include "ConfigurationLog.h"
#include "base/Files.h"
#include "base/Json.h"
#include "configuration/DefaultConfiguration.h"
#include "configuration/JSONConfiguration.h"
#include "configuration/PreferencesConfiguration.h"
#include "os/DevicePath.h"

namespace Torv {

using android::base::Error;
using android::base::Result;

Result<Json::Value> readServiceConfiguration() {
  const auto text = Base::readFile(OS::devicePath(kServiceConfigurationPath), Base::kMaxJsonBytes);
  if (!text.ok()) return Error() << text.error();
  auto root = Base::parseJson(*text);
  if (root.ok() && !root->isObject()) return Error() << "not a JSON object";
  return root;
}

std::shared_ptr<OverridableConfiguration> buildConfigurationChain() {
  auto root = readServiceConfiguration();
  if (!root.ok()) {
    __android_log_print(ANDROID_LOG_ERROR, kConfigurationLogTag, "%s: %s", kServiceConfigurationPath,
                        root.error().message().c_str());
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
