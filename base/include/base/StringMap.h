// The string-to-string map in which contexts, states and histories are handed from folder to folder.
#pragma once

#include <string>
#include <unordered_map>

namespace Torv::Base {

using StringMap = std::unordered_map<std::string, std::string>;

}  // namespace Torv::Base
