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

  StallWatch(std::chrono::milliseconds patience, size_t maxBytes)
      : mPatience(patience), mMaxBytes(maxBytes) {}

  struct Entry {
    Clock::time_point since;
    size_t bytes = 0;
    std::function<void()> drop;
  };
  using Ticket = std::list<Entry>::iterator;

  // When a connection that stalls from `now` on is due to be dropped.
  Clock::time_point due(Clock::time_point now) const { return now + mPatience; }

  // `drop` is called with the watch's lock held: it must only shut the connection down, whose owner then
  // removes the entry in its own time.
  Ticket add(Clock::time_point now, size_t bytes, std::function<void()> drop);
  // The stalled connection has come on: a new frame, or bytes that its client took.
  void restart(Ticket ticket, Clock::time_point now, size_t bytes);
  void resize(Ticket ticket, size_t bytes);
  void remove(Ticket ticket);

  // Drops those that have stalled for too long. Returns when to ask again, or nothing while none stalls.
  std::optional<Clock::time_point> expire(Clock::time_point now);

 private:
  void setBytes(Ticket ticket, size_t bytes);

  const std::chrono::milliseconds mPatience;
  const size_t mMaxBytes;
  std::mutex mMutex;
  std::list<Entry> mEntries;  // guarded by mMutex; the longest stalled one first
  size_t mBytes = 0;          // guarded by mMutex; the sum over mEntries
};

}  // namespace platform::binder
