#pragma once

#include <string>

namespace Torv::Utils {

// Returns the value of a system property, of any length; "" if it is not set.
std::string getSystemProperty(const std::string& name);

}  // namespace Torv::Utils
