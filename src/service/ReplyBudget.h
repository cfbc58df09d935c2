// Makes answers fit into a reply (see kMaxReplyBytes), by leaving out what is largest.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "service/BundlePacking.h"

namespace Torv::OS::Diagnostics {

// Makes the system context and the global namespaces fit into `maxReplyBytes` together. The context comes
// first, because it holds the histories: it loses its largest values only if it does not fit alone. Of the
// namespaces, the largest lose their states and keep their entries. Returns the names of what was left out.
std::vector<std::string> fitSystemContext(size_t maxReplyBytes, StringMap* context, GlobalStates* globals);

// Logs what an answer does not hold, at most once a second. Does nothing if `names` is empty.
void logLeftOut(const char* kind, const std::vector<std::string>& names);

}  // namespace Torv::OS::Diagnostics
