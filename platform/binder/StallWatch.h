#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <list>
#include <mutex>
#include <optional>

namespace platform::binder {

// Connections that have a frame begun and not ended, or a reply that their client does not take: when they
// began to stall, and how much memory they hold. Those that stall for too long are dropped, and the longest
// stalled ones sooner when together they hold too much. Thread-safe; clocks are the caller's.
class StallWatch {
 public:
  using Clock = std::chrono::steady_clock;

  static constexpr std::chrono::seconds kPatience{5};
  static constexpr size_t kMaxBytes = 32 * 1024 * 1024;

  struct Entry {
    Clock::time_point since;
    size_t bytes = 0;
    std::function<void()> drop;
  };
  using Ticket = std::list<Entry>::iterator;

  // `drop` is called with the watch's lock held: it must only shut the connection down, whose owner then
  // removes the entry in its own time.
  Ticket add(Clock::time_point now, size_t bytes, std::function<void()> drop);
  // The stalled connection has come on: a new frame, or bytes that its client took.
  void restart(Ticket ticket, Clock::time_point now, size_t bytes);
  void resize(Ticket ticket, size_t bytes);
  void remove(Ticket ticket);

  // Drops those that have stalled for kPatience. Returns when to ask again, or nothing while none stalls.
  std::optional<Clock::time_point> expire(Clock::time_point now);

 private:
  void setBytes(Ticket ticket, size_t bytes);

  std::mutex mMutex;
  std::list<Entry> mEntries;  // guarded by mMutex; the longest stalled one first
  size_t mBytes = 0;          // guarded by mMutex; the sum over mEntries
};

}  // namespace platform::binder
