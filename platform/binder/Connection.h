#pragma once

#include <atomic>
#include <string>

#include <android-base/unique_fd.h>

#include "Frame.h"
#include "Service.h"
#include "base/Clock.h"
#include "runtime/LogLimit.h"

namespace platform::binder {

// CLOCK_MONOTONIC at the resolution of the kernel's tick: reading it costs a few nanoseconds, and each
// transaction reads it three times.
struct CoarseClock {
  using duration = std::chrono::nanoseconds;
  using time_point = std::chrono::time_point<CoarseClock, duration>;

  static time_point now() {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &time);
    return time_point(duration(Torv::Base::toNanoseconds(time)));
  }
};

// What the connections of a server share: the slots of its pool, the bytes of Limits, and one line in the log
// for each second.
struct Pool {
  explicit Pool(const Limits& limits);
  // Nobody gets anything any more, so that all connections end.
  void close();

  const std::chrono::milliseconds transfer;
  Shares slots;
  Shares requests;
  Shares replies;
  Shares oneWays;
  LogLimit warnings;  // about what clients do
};

// The end of a line that stands for `times` warnings.
std::string warningsNote(uint64_t times);

// The server's end of a client's connection. A thread of its own reads the frames, runs the two-way
// transactions one at a time, each with a slot of the pool, and hands the one-way ones to the queue of the
// service.
class Connection {
 public:
  enum class State {
    Idle,          // waits for the first byte of a frame
    Transferring,  // a frame or a reply is under way
    Running,       // the server is at work, or has the client wait for its share
  };

  Connection(Pool& pool, std::shared_ptr<const Service> service, android::base::unique_fd socket, Peer peer);

  // Serves the connection to its end.
  void run();

  uid_t uid() const { return mPeer.uid; }
  // Any thread.
  State state() const { return mState.load(std::memory_order_relaxed); }
  CoarseClock::duration timeInState(CoarseClock::time_point now) const {
    return now - mStateSince.load(std::memory_order_relaxed);
  }
  // Ends the connection: at once if a frame or a reply is under way, otherwise when what its client has sent
  // is answered. A client that is answered or idle notices when it sends next. Any thread.
  void giveUp();

 private:
  bool serveFrame();
  bool readPayload(Shares& shares, size_t charge, size_t size, android::Parcel* data, Shares::Part* room);
  bool enqueue(const FrameHeader& header);
  bool answer(const FrameHeader& header);
  bool reply(android::status_t status, const android::Parcel& data, Shares::Part slot);
  bool sendRest(const FrameHeader& header, const android::Parcel& data, size_t sent);
  void enter(State state);
  bool fail(const std::string& why);

  Pool& mPool;
  const std::shared_ptr<const Service> mService;
  const android::base::unique_fd mSocket;
  const Peer mPeer;
  // Keeps its memory between calls unless the last reply was large: freed after each call, it makes the
  // allocator tidy up its heap each time, which costs a sixth of a small call.
  android::Parcel mReply;
  FrameReader mReader;
  std::atomic<State> mState{State::Idle};
  std::atomic<CoarseClock::time_point> mStateSince{CoarseClock::now()};
  std::atomic<bool> mGivenUp{false};
};

}  // namespace platform::binder
