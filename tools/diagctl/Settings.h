#pragma once

#include <string>
#include <vector>

#include <json/value.h>

#include "configuration/DefaultConfiguration.h"

namespace diagctl {

// What a setting's type is called on the command line.
const char* nameOf(Torv::SettingType type);

// Every setting that somebody reads: those with a default, and those that have none.
std::vector<Torv::Setting> knownSettings();

// A value as text: a string as it is, anything else as JSON.
std::string plainText(const Json::Value& value);

}  // namespace diagctl
