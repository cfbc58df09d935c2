#include "storage/KeyTable.h"

namespace Torv::OS::Diagnostics {

std::optional<KeyTable::Id> KeyTable::find(const std::string& name) const {
  const auto item = mIds.find(name);
  if (item == mIds.end()) return std::nullopt;
  return item->second;
}

KeyTable::Id KeyTable::hold(const std::string& name) {
  const auto [item, isNew] = mIds.try_emplace(name, 0);
  if (isNew) {
    if (mFree.empty()) {
      mFree.push_back(static_cast<Id>(mSlots.size()));
      mSlots.emplace_back();
    }
    item->second = mFree.back();
    mFree.pop_back();
    mSlots[item->second].item = &*item;
  }
  ++mSlots[item->second].holders;
  return item->second;
}

void KeyTable::release(Id id) {
  Slot& slot = mSlots[id];
  if (--slot.holders > 0) return;
  mIds.erase(mIds.find(slot.item->first));
  slot.item = nullptr;
  mFree.push_back(id);
}

}  // namespace Torv::OS::Diagnostics
