#pragma once

#include <vector>

#include "configuration/DefaultConfiguration.h"

namespace diagctl {

// What a setting's type is called on the command line.
const char* nameOf(Torv::SettingType type);

// Every setting that somebody reads: those with a default, and those that have none.
std::vector<Torv::Setting> knownSettings();

}  // namespace diagctl
