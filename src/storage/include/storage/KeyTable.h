#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace Torv::OS::Diagnostics {

// Gives the state names of all processes small numbers, so that each name is stored and hashed once and not
// once a process. A name lives as long as somebody holds it; what is left of it then is its number, a few
// bytes that wait for the next new name. Not thread-safe: guarded by whatever guards the states.
class KeyTable {
 public:
  using Id = uint32_t;

  KeyTable() = default;
  KeyTable(const KeyTable&) = delete;
  KeyTable& operator=(const KeyTable&) = delete;

  std::optional<Id> find(const std::string& name) const;

  // The number of `name`, new where the name is new. Every hold() is given back with one release(); after
  // the last one the name is forgotten and its number may be given to another.
  Id hold(const std::string& name);
  void hold(Id id) { ++mSlots[id].holders; }  // of a number that is held already
  void release(Id id);

  // The name of a number that is held; valid until its last release().
  const std::string& name(Id id) const { return mSlots[id].item->first; }

  // How many names are held.
  size_t size() const { return mIds.size(); }

 private:
  struct Slot {
    const std::pair<const std::string, Id>* item =
        nullptr;  // the node of mIds; null where the number is free
    uint32_t holders = 0;
  };

  // libstdc++ searches a map of up to twenty strings one by one, unless the hash is not its own.
  struct Hash {
    size_t operator()(const std::string& name) const { return std::hash<std::string>()(name); }
  };

  std::unordered_map<std::string, Id, Hash> mIds;
  std::vector<Slot> mSlots;  // by number
  std::vector<Id> mFree;
};

}  // namespace Torv::OS::Diagnostics
