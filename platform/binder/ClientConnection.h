#pragma once

#include "parcel/ParcelHeader.h"

#include <chrono>
#include <memory>

#include <android-base/unique_fd.h>

#include "Frame.h"
#include "RemoteService.h"

namespace platform::binder {

// A transaction on the calling thread's own connection to the handle's service, made at first use and kept.
// DEAD_OBJECT once the server is dead; FAILED_TRANSACTION where the data is over the limit, where a living
// server ended the connection, and for a one-way call whose server takes no more of them for now.
android::status_t transact(int32_t handle, uint32_t code, const android::Parcel& data, android::Parcel* reply,
                           uint32_t flags);

// Leaves the calling thread a connection that was made to look the service up.
void keepConnection(int32_t handle, std::shared_ptr<RemoteService> service, android::base::unique_fd socket);

// A thread's connection to a service, for its two-way or for its one-way transactions: one-way transactions
// that the server is not ready for must not hold up others.
class ClientConnection {
 public:
  enum class Sent {
    Whole,
    Broken,  // the server has closed; no part of the transaction will run
    Full,    // one-way: the server takes no more at present
  };

  explicit ClientConnection(android::base::unique_fd socket) : mSocket(std::move(socket)) {}

  Sent send(const FrameHeader& header, const uint8_t* payload);
  Sent post(const FrameHeader& header, const uint8_t* payload);
  // Waits for the reply and leaves its parcel in `reply`. Nothing where the server has closed or answers in a
  // way that is not the protocol's.
  std::optional<android::status_t> receive(android::Parcel* reply);

 private:
  // Whether the event, or the end of the connection, comes in time.
  bool waitFor(short event, std::chrono::steady_clock::time_point deadline);

  android::base::unique_fd mSocket;
  bool mEnding = false;  // one-way: half a transaction was sent, and the server is to read to the end
};

}  // namespace platform::binder
