#pragma once

#include <string>
#include <unordered_map>

namespace Torv::Base {

using StringMap = std::unordered_map<std::string, std::string>;

}  // namespace Torv::Base
