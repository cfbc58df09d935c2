#include "ReplyBudget.h"

#include <algorithm>
#include <atomic>
#include <utility>

#include <android/log.h>

#include "LogTags.h"
#include "base/Clock.h"
#include "storage/Limits.h"

namespace Torv::OS::Diagnostics {
namespace {

constexpr size_t kMaxNamesInLog = 100;
constexpr int64_t kLogPeriodNs = 1'000'000'000;

size_t replyBytesOf(const StringMap& map) {
  size_t sum = 0;
  for (const auto& [key, value] : map) sum += replyBytesOfState(key.size(), value.size());
  return sum;
}

using Sizes = std::vector<std::pair<size_t, std::string>>;

// Returns the names of the largest, as many as have to go so that the others fit.
std::vector<std::string> largestThatMustGo(Sizes sizes, size_t sum, size_t atMost) {
  std::sort(sizes.rbegin(), sizes.rend());
  std::vector<std::string> names;
  for (auto largest = sizes.begin(); sum > atMost && largest != sizes.end(); ++largest) {
    sum -= largest->first;
    names.push_back(std::move(largest->second));
  }
  return names;
}

}  // namespace

std::vector<std::string> fitSystemContext(size_t maxReplyBytes, StringMap* context, GlobalStates* globals) {
  // The reply's own two bundles, and for each namespace its entry, its name and a bundle.
  size_t fixed = kReplyBytesPerProcess;
  size_t sum = 0;
  Sizes sizes;
  for (const auto& [name, states] : *globals) {
    fixed += kReplyBytesPerProcess + 4 * name.size();
    sizes.emplace_back(replyBytesOf(states), name);
    sum += sizes.back().first;
  }
  const size_t available = maxReplyBytes - std::min(fixed, maxReplyBytes);

  Sizes contextSizes;
  for (const auto& [key, value] : *context)
    contextSizes.emplace_back(replyBytesOfState(key.size(), value.size()), key);
  std::vector<std::string> leftOut =
      largestThatMustGo(std::move(contextSizes), replyBytesOf(*context), available);
  for (const std::string& key : leftOut) context->erase(key);

  for (std::string& name : largestThatMustGo(std::move(sizes), sum, available - replyBytesOf(*context))) {
    globals->at(name).clear();
    leftOut.push_back(std::move(name));
  }
  return leftOut;
}

void logLeftOut(const char* kind, const std::vector<std::string>& names) {
  static std::atomic<int64_t> nextLogNs{0};
  if (names.empty()) return;
  const int64_t nowNs = Base::bootTimeNs();
  int64_t next = nextLogNs.load();
  if (nowNs < next || !nextLogNs.compare_exchange_strong(next, nowNs + kLogPeriodNs)) return;
  std::string list;
  for (size_t i = 0; i < std::min(names.size(), kMaxNamesInLog); ++i) list += " " + names[i];
  __android_log_print(ANDROID_LOG_WARN, kServiceTag,
                      "%zu %s did not fit into a reply and came without states:%s%s", names.size(), kind,
                      list.c_str(), names.size() > kMaxNamesInLog ? " ..." : "");
}

}  // namespace Torv::OS::Diagnostics
