#pragma once

#include "parcel/ParcelHeader.h"

#include <memory>
#include <optional>

#include <android-base/unique_fd.h>

#include "Frame.h"
#include "RemoteService.h"

namespace platform::binder {

// Runs a transaction over the calling thread's own connection to the handle's service, made at first use and
// kept. Returns DEAD_OBJECT if the server is dead; FAILED_TRANSACTION if the data is over kMaxPayload, if a
// living server closed the connection, and for a one-way call that the server takes no more of for now. A
// child of fork(2) makes connections of its own.
android::status_t transact(int32_t handle, uint32_t code, const android::Parcel& data, android::Parcel* reply,
                           uint32_t flags);

// Gives the calling thread a connection that was made to look the service up.
void keepConnection(int32_t handle, std::shared_ptr<RemoteService> service, android::base::unique_fd socket);

// A thread's connection to a service. It has two: its two-way transactions do not wait for one-way ones that
// the server is not ready for.
class ClientConnection {
 public:
  enum class Sent {
    Whole,
    Broken,  // the server has closed; no part of the transaction will run
    Full,    // one-way: the server takes no more at present, and this transaction will not run
  };

  explicit ClientConnection(android::base::unique_fd socket);

  // Sends a two-way transaction, however long the server takes to read it.
  Sent send(const FrameHeader& header, const uint8_t* payload);
  // Sends a one-way transaction, and waits no longer than kOneWayPatience for room.
  Sent post(const FrameHeader& header, const uint8_t* payload);
  // Waits for the reply to send(), and reads its parcel into `reply` unless that is null. Returns nullopt if
  // the server has closed or does not follow the protocol.
  std::optional<android::status_t> receive(android::Parcel* reply);

 private:
  android::base::Result<android::status_t> readReply(android::Parcel* reply);

  const android::base::unique_fd mSocket;
  FrameReader mReader;
  bool mEnding = false;  // half a one-way transaction was sent, and the server is to read to the end
};

}  // namespace platform::binder
