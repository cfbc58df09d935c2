#pragma once

#include <memory>

#include <android-base/result.h>
#include <json/value.h>

#include "configuration/OverridableConfiguration.h"

namespace Torv {

// The path on the device of the service configuration: a JSON object of configuration keys.
inline constexpr char kServiceConfigurationPath[] = "/system_ext/etc/torv_crashreporter.conf";

// Reads and parses the service configuration. Returns an error that says what is wrong if the file cannot be
// read, is no regular file, is not JSON, is not an object, or exceeds a limit of base/Json.h, which the error
// names. Never blocks.
[[nodiscard]] android::base::Result<Json::Value> readServiceConfiguration();

// Builds a chain of four layers, from the top: overrides (none yet), service configuration, preferences
// store, defaults. If the service configuration cannot be loaded, logs the reason as an error and ends the
// process with the fatal message. Every call builds another chain and reads the file again. Never returns
// null.
std::shared_ptr<OverridableConfiguration> buildConfigurationChain();

}  // namespace Torv
