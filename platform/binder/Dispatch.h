// From a frame to BBinder::transact, with the caller's identity on the thread for as long as that runs.
#pragma once

#include "parcel/ParcelHeader.h"

#include <array>
#include <memory>

#include <binder/Binder.h>

#include "Frame.h"
#include "LocalSocket.h"

namespace platform::binder {

class OneWayQueue;

// The token of IPCThreadState's clearCallingIdentity and restoreCallingIdentity.
constexpr int64_t packIdentity(Peer caller) {
  return static_cast<int64_t>(static_cast<uint64_t>(caller.uid) << 32 | static_cast<uint32_t>(caller.pid));
}
constexpr Peer unpackIdentity(int64_t token) {
  return {static_cast<uid_t>(static_cast<uint64_t>(token) >> 32), static_cast<pid_t>(token & 0xffffffff)};
}

// What each thread of a server's pool keeps from one transaction to the next. Large buffers are let go.
struct Worker {
  std::array<uint8_t, size_t{64} * 1024> incoming;
  android::Parcel request;
  android::Parcel reply;
  // A queue that this thread has become the runner of, and will run when it has armed its connection.
  std::shared_ptr<OneWayQueue> toRun;
};

// Hands the transaction to `binder` on this thread, with the calling uid and pid of `caller`. The reply is
// left in worker.reply, to be read from its start to dataSize(); it is empty where the result is not OK.
android::status_t dispatch(android::BBinder& binder, Peer caller, const Frame& frame, Worker& worker);

}  // namespace platform::binder
