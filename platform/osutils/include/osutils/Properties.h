#pragma once

#include <string>

namespace Torv::Utils {

// The system property's value, of any length; empty where it is not set.
std::string getSystemProperty(const std::string& name);

}  // namespace Torv::Utils
