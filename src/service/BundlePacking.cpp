#include "service/BundlePacking.h"

#include <algorithm>
#include <utility>

#include "Text16.h"
#include "dev/kerno/internal/diagnostics/BundleKeys.h"
#include "storage/Limits.h"

namespace Torv::OS::Diagnostics {

using android::String16;
using android::os::PersistableBundle;
namespace bundlekey = dev::kerno::internal::diagnostics::bundlekey;

void packMapToBundle(const StringMap& map, PersistableBundle* out) {
  for (const auto& [key, value] : map) {
    out->putString(toString16(key), toString16(value));
  }
}

void packProcessEntriesToBundle(int pid, const StringMap& entries, PersistableBundle* out) {
  PersistableBundle states;
  packMapToBundle(entries, &states);
  out->putInt(String16(bundlekey::kProcessId), pid);
  out->putPersistableBundle(String16(bundlekey::kApplicationStateData), states);
}

void packAllProcessStatesToBundle(const ProcessStates& states, PersistableBundle* out) {
  for (const auto& [pid, entries] : states) {
    PersistableBundle process;
    packProcessEntriesToBundle(pid, entries, &process);
    out->putPersistableBundle(toString16(std::to_string(pid)), process);
  }
}

void packGlobalStateEntriesToBundle(const std::string& globalNamespace, const StringMap& entries,
                                    PersistableBundle* out) {
  PersistableBundle states;
  packMapToBundle(entries, &states);
  out->putString(String16(bundlekey::kGlobalNamespace), toString16(globalNamespace));
  out->putPersistableBundle(String16(bundlekey::kGlobalStateData), states);
}

void packAllGlobalStatesToBundle(const GlobalStates& states, PersistableBundle* out) {
  for (const auto& [globalNamespace, entries] : states) {
    PersistableBundle bundle;
    packGlobalStateEntriesToBundle(globalNamespace, entries, &bundle);
    out->putPersistableBundle(toString16(globalNamespace), bundle);
  }
}

void packSystemContextToBundle(const StringMap& context, const GlobalStates& globals,
                               PersistableBundle* out) {
  PersistableBundle contextBundle;
  packMapToBundle(context, &contextBundle);
  PersistableBundle globalsBundle;
  packAllGlobalStatesToBundle(globals, &globalsBundle);
  out->putPersistableBundle(String16(bundlekey::kSystemContextData), contextBundle);
  out->putPersistableBundle(String16(bundlekey::kGlobalStateData), globalsBundle);
}

std::vector<std::string> leaveOutLargest(size_t maxReplyBytes, StringMap* map) {
  size_t sum = 0;
  std::vector<std::pair<size_t, std::string>> sizes;
  for (const auto& [key, value] : *map) {
    sizes.emplace_back(replyBytesOfState(key.size(), value.size()), key);
    sum += sizes.back().first;
  }
  std::sort(sizes.rbegin(), sizes.rend());
  std::vector<std::string> leftOut;
  for (auto largest = sizes.begin(); sum > maxReplyBytes; ++largest) {
    sum -= largest->first;
    map->erase(largest->second);
    leftOut.push_back(largest->second);
  }
  return leftOut;
}

}  // namespace Torv::OS::Diagnostics
