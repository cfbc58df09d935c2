#pragma once

#include <string>

namespace Torv::Utils {

// Returns the value that a system property has now, of any length; "" if it is not set. Thread-safe.
std::string getSystemProperty(const std::string& name);

}  // namespace Torv::Utils
