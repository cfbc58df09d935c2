// The string-to-string map in which contexts, states and histories are handed from folder to folder. Texts
// are meant to be UTF-8, but those of publishers may hold malformed bytes.
#pragma once

#include <string>
#include <unordered_map>

namespace Torv::Base {

using StringMap = std::unordered_map<std::string, std::string>;

}  // namespace Torv::Base
