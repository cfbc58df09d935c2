// The layouts of the bundles that the collector service answers with. docs/interfaces.md shows them to the
// authors of clients; a change here is a change of the interface.
#pragma once

#include <cstddef>
#include <string>
#include <unordered_map>
#include <vector>

#include "base/StringMap.h"
#include "dev/kerno/internal/diagnostics/BinderHeaders.h"

namespace Torv::OS::Diagnostics {

using Base::StringMap;
// State key to newest value, for each process id.
using ProcessStates = std::unordered_map<int, StringMap>;
// State key to newest value as JSON text, for each namespace.
using GlobalStates = std::unordered_map<std::string, StringMap>;

// Each function adds to `out` and leaves its other entries as they are. Keys and values are UTF-8; each
// malformed byte is replaced by U+FFFD, so that the rest of the text is not lost.

// One string for each entry.
void packMapToBundle(const StringMap& map, android::os::PersistableBundle* out);

// {"processId": int, "ApplicationStateData": {one string for each entry}}
void packProcessEntriesToBundle(int pid, const StringMap& entries, android::os::PersistableBundle* out);

// {"<pid>": the bundle of that process, …}
void packAllProcessStatesToBundle(const ProcessStates& states, android::os::PersistableBundle* out);

// {"GlobalNamespace": string, "GlobalStateData": {one string for each entry}}
void packGlobalStateEntriesToBundle(const std::string& globalNamespace, const StringMap& entries,
                                    android::os::PersistableBundle* out);

// {"<namespace>": the bundle of that namespace, …}
void packAllGlobalStatesToBundle(const GlobalStates& states, android::os::PersistableBundle* out);

// {"SystemContextData": {one string for each entry}, "GlobalStateData": {all namespaces}}. Both keys are
// always there; their bundles may be empty.
void packSystemContextToBundle(const StringMap& context, const GlobalStates& globals,
                               android::os::PersistableBundle* out);

// Removes the largest values from `map` until the others fit into `maxReplyBytes` as a bundle. Returns the
// removed keys.
std::vector<std::string> leaveOutLargest(size_t maxReplyBytes, StringMap* map);

}  // namespace Torv::OS::Diagnostics
