#include "storage/State.h"

#include <algorithm>
#include <vector>

#include "AgedValue.h"
#include "PackedHistories.h"

namespace Torv::OS::Diagnostics {
namespace {

using Base::StringMap;
using History = PackedHistories::History;

std::optional<std::string> newestValue(const History& history, bool withAge) {
  if (history.empty()) return std::nullopt;
  const PackedHistories::Value& newest = history.newest();
  if (!withAge) return std::string(newest.text);
  return agedValue(newest.timestampNs, newest.text, bootTimeMs());
}

}  // namespace

State::State() : mHistories(std::make_unique<PackedHistories>()) {}
State::~State() = default;

void State::add(const std::string& key, int64_t timestamp, const std::string& value) {
  mHistories->add(key, timestamp, value);
}

std::optional<std::string> State::get(const std::string& key, bool withAge) const {
  return newestValue(mHistories->find(key), withAge);
}

StringMap State::getAll(bool withAge) const {
  StringMap all;
  all.reserve(mHistories->keyCount());
  mHistories->forEach([&](const History& history) {
    if (history.empty()) return;
    if (withAge) {
      all.try_emplace(std::string(history.key), newestValue(history, true).value_or(""));
    } else {
      all.try_emplace(std::string(history.key), history.newest().text);
    }
  });
  return all;
}

void State::dropIfNewer(const std::string& key, int64_t timestamp) {
  const History history = mHistories->find(key);
  if (!history.empty() && history.newest().timestampNs > timestamp) mHistories->clear(key);
}

size_t State::replyBytes() const {
  return mHistories->replyBytes();
}

StringMap State::getNewest(size_t maxReplyBytes) const {
  std::vector<History> histories;
  histories.reserve(mHistories->keyCount());
  mHistories->forEach([&](const History& history) {
    if (!history.empty()) histories.push_back(history);
  });
  std::sort(histories.begin(), histories.end(), [](const History& a, const History& b) {
    return a.newest().timestampNs > b.newest().timestampNs;
  });
  StringMap newest;
  size_t sum = 0;
  for (const History& history : histories) {
    sum += history.replyBytes();
    if (sum > maxReplyBytes) break;
    newest.try_emplace(std::string(history.key), history.newest().text);
  }
  return newest;
}

size_t State::keepNewest(size_t maxBytes) {
  return mHistories->keepNewest(maxBytes);
}

size_t State::keyCount() const {
  return mHistories->keyCount();
}

size_t State::bytes() const {
  return mHistories->bytes();
}

}  // namespace Torv::OS::Diagnostics
