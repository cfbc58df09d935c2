#pragma once

#include <memory>

#include <android-base/result.h>
#include <json/value.h>

#include "configuration/OverridableConfiguration.h"

namespace Torv {

// The service configuration, a JSON object of configuration keys, by its path on the device.
inline constexpr char kServiceConfigurationPath[] = "/system_ext/etc/torv_crashreporter.conf";

// Reads and parses the service configuration. Returns an error that says what is wrong if the file cannot be
// read, is not JSON, exceeds a limit of base/Json.h, or is not an object.
[[nodiscard]] android::base::Result<Json::Value> readServiceConfiguration();

// Builds one chain: overrides (none yet), service configuration, preferences store, defaults. Without a
// service configuration it ends the process with the fatal message. Every call builds another chain; who
// wants one for the process keeps it.
std::shared_ptr<OverridableConfiguration> buildConfigurationChain();

}  // namespace Torv
