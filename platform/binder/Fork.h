// A forked child shares its parent's sockets but none of its threads: what belongs to a process must be told
// apart from what it has inherited.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>

namespace platform::binder {

// How many forks lie between this process and the first use of the library; cheap.
uint32_t forkGeneration();

// An object that each process makes for itself at first use. What a child inherits of its parent's is left
// alone: its locks may be held by threads that the child does not have.
template <typename T>
class PerProcess {
 public:
  T& get() {
    const uint32_t generation = forkGeneration();
    Slot* slot = mSlot.load(std::memory_order_acquire);
    if (slot != nullptr && slot->generation == generation) return slot->object;
    auto* const made = new Slot(generation, slot);
    if (mSlot.compare_exchange_strong(slot, made, std::memory_order_acq_rel)) return made->object;
    delete made;
    return slot->object;
  }

 private:
  struct Slot {
    Slot(uint32_t ofGeneration, Slot* from) : generation(ofGeneration), inherited(from) {}

    const uint32_t generation;
    Slot* const inherited;
    T object;
  };
  std::atomic<Slot*> mSlot{nullptr};
};

}  // namespace platform::binder
