#pragma once

#include "parcel/ParcelHeader.h"

#include <atomic>
#include <string>

#include <android-base/unique_fd.h>
#include <binder/Binder.h>

#include "Frame.h"
#include "Service.h"
#include "ServiceAddress.h"
#include "Shares.h"
#include "runtime/LogLimit.h"

namespace platform::binder {

// What the connections of a server share: the slots of its pool, the bytes of Limits, and the right to write
// one warning into the log each second. Thread-safe.
struct Pool {
  // The pool has no slots until setShare() gives it some.
  explicit Pool(const Limits& limits);
  // From now on every take() fails, also for those who wait, so all connections end.
  void close();
  // Logs a warning, or counts it for the next one if there was one in this second.
  void warn(const std::string& what);

  const std::chrono::milliseconds transfer;
  Shares slots;
  Shares requests;
  Shares replies;
  Shares oneWays;

 private:
  LogLimit mWarnings;
};

// The server's end of a client's connection. A thread of its own reads the frames and runs the two-way
// transactions one at a time, each with a slot of the pool. It hands one-way calls to the service's queue.
// Calls that the thread has not read yet wait in the socket.
class Connection {
 public:
  enum class State {
    Idle,          // waits for the first byte of a frame
    Transferring,  // a frame or a reply is under way
    Running,       // runs the transaction, or waits for a share of the pool
  };

  // `peer` is the other end of `socket`. `pool` and `service` must outlive the connection.
  Connection(Pool& pool, const Service& service, Peer peer, android::base::unique_fd socket);

  // Serves the connection until it ends. Called once.
  void run();

  uid_t uid() const { return mPeer.uid; }
  // Any thread may call it, as the two functions below.
  State state() const { return mState.load(std::memory_order_relaxed); }
  SteadyClock::time_point inStateSince() const { return mStateSince.load(std::memory_order_relaxed); }
  // Ends the connection: at once if a frame or a reply is under way, otherwise when the transactions that its
  // client has sent are done and answered. The client notices when it sends next.
  void giveUp();

 private:
  bool serveFrame();
  bool enqueue(const FrameHeader& header);
  bool answer(const FrameHeader& header);
  bool awaitRoom(Shares& shares, size_t amount, Shares::Part* room);
  bool readPayload(size_t size, android::Parcel* data);
  bool reply(android::status_t status, Shares::Part slot);
  void enter(State state);
  bool fail(const std::string& why);

  Pool& mPool;
  const Service& mService;
  const android::base::unique_fd mSocket;
  const Peer mPeer;
  // Empty between calls, but keeps its memory unless the last reply was large: if it were freed after each
  // call, the allocator would tidy up its heap each time, which costs a sixth of a small call.
  android::Parcel mReply;
  FrameReader mReader;
  std::atomic<State> mState{State::Idle};
  std::atomic<SteadyClock::time_point> mStateSince{SteadyClock::now()};
  std::atomic<bool> mGivenUp{false};
};

}  // namespace platform::binder
