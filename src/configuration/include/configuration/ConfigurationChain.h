#pragma once

#include <memory>
#include <optional>
#include <string>

#include <json/value.h>

#include "configuration/OverridableConfiguration.h"

namespace Torv {

// The service configuration, a JSON object of configuration keys, by its path on the device.
inline constexpr char kServiceConfigurationPath[] = "/system_ext/etc/torv_crashreporter.conf";

// The parsed service configuration. Nothing where it cannot be read, is not JSON or not an object; `error`
// then says which.
std::optional<Json::Value> readServiceConfiguration(std::string& error);

// Builds one chain: overrides (none yet), service configuration, preferences store, defaults. Without a
// service configuration it ends the process with the fatal message. Every call builds another chain; who
// wants one for the process keeps it.
std::shared_ptr<OverridableConfiguration> buildConfigurationChain();

}  // namespace Torv
