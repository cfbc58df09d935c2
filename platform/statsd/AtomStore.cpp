#include "AtomStore.h"

#include <algorithm>
#include <utility>

namespace libstatsd {

std::vector<uid_t> AtomStore::add(uid_t sender, AtomRecord atom) {
  std::vector<uid_t> dropped;
  const size_t bytes = atom.bytes();
  while (mCount != 0 && mBytes + bytes > mMaxBytes) dropped.push_back(dropOldest());
  Queue& queue = mQueues[sender];
  queue.entries.push_back({mSequence++, std::move(atom)});
  queue.bytes += bytes;
  mBytes += bytes;
  mCount++;
  return dropped;
}

uid_t AtomStore::dropOldest() {
  const auto most = std::max_element(mQueues.begin(), mQueues.end(), [](const auto& a, const auto& b) {
    return a.second.bytes < b.second.bytes;
  });
  const uid_t sender = most->first;
  Queue& queue = most->second;
  const size_t bytes = queue.entries.front().atom.bytes();
  queue.entries.pop_front();
  queue.bytes -= bytes;
  mBytes -= bytes;
  mCount--;
  if (queue.entries.empty()) mQueues.erase(most);
  return sender;
}

std::vector<AtomRecord> AtomStore::take() {
  std::vector<Entry*> inOrder;
  inOrder.reserve(mCount);
  for (auto& [sender, queue] : mQueues) {
    for (Entry& entry : queue.entries) inOrder.push_back(&entry);
  }
  const auto isEarlier = [](const Entry* a, const Entry* b) { return a->sequence < b->sequence; };
  if (mQueues.size() > 1) std::sort(inOrder.begin(), inOrder.end(), isEarlier);
  std::vector<AtomRecord> atoms;
  atoms.reserve(mCount);
  for (Entry* entry : inOrder) atoms.push_back(std::move(entry->atom));
  mQueues.clear();
  mBytes = 0;
  mCount = 0;
  return atoms;
}

size_t AtomStore::countOf(uid_t sender) const {
  const auto found = mQueues.find(sender);
  return found == mQueues.end() ? 0 : found->second.entries.size();
}

}  // namespace libstatsd
