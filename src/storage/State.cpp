#include "storage/State.h"

#include <algorithm>
#include <utility>

#include "AgedValue.h"
#include "History.h"

namespace Torv::OS::Diagnostics {
namespace {

std::optional<std::string> newestValue(const History& history, bool withAge) {
  if (history.empty()) return std::nullopt;
  if (!withAge) return history.newest().value;
  return agedValue(history.newest(), bootTimeMs());
}

}  // namespace

State::State(KeyTable& keys) : mKeys(keys) {}

State::~State() {
  for (const History& history : mHistories) mKeys.release(history.key());
}

void State::add(const std::string& key, int64_t timestamp, std::string value) {
  findOrInsert(key).add(timestamp, std::move(value));
}

std::optional<std::string> State::get(const std::string& key, bool withAge) const {
  const History* history = find(key);
  if (history == nullptr) return std::nullopt;
  return newestValue(*history, withAge);
}

std::unordered_map<std::string, std::string> State::getAll(bool withAge) const {
  std::unordered_map<std::string, std::string> all;
  all.reserve(mHistories.size());
  for (const History& history : mHistories) {
    if (history.empty()) continue;
    const std::string& name = mKeys.name(history.key());
    if (withAge) {
      all.try_emplace(name, newestValue(history, true).value_or(""));
    } else {
      all.try_emplace(name, history.newest().value);
    }
  }
  return all;
}

std::optional<int64_t> State::newestTimestamp(const std::string& key) const {
  const History* history = find(key);
  if (history == nullptr || history->empty()) return std::nullopt;
  return history->newest().timestamp;
}

void State::clear(const std::string& key) {
  if (History* history = find(key)) history->clear();
}

const History* State::find(const std::string& key) const {
  const std::optional<KeyTable::Id> id = mKeys.find(key);
  const std::optional<uint32_t> slot = id ? mIndex.find(*id) : std::nullopt;
  return slot ? &mHistories[*slot] : nullptr;
}

History* State::find(const std::string& key) {
  return const_cast<History*>(std::as_const(*this).find(key));  // no part of a State is const itself
}

History& State::findOrInsert(const std::string& key) {
  std::optional<KeyTable::Id> id = mKeys.find(key);
  if (id) {
    if (const std::optional<uint32_t> slot = mIndex.find(*id)) return mHistories[*slot];
    mKeys.hold(*id);
  } else {
    id = mKeys.hold(key);
  }
  mIndex.insert(*id, static_cast<uint32_t>(mHistories.size()));
  // Processes have a handful of keys each: doubling would leave a fifth of the memory unused.
  if (mHistories.size() == mHistories.capacity()) {
    mHistories.reserve(mHistories.size() + std::max<size_t>(4, mHistories.size() / 4));
  }
  return mHistories.emplace_back(*id);
}

}  // namespace Torv::OS::Diagnostics
