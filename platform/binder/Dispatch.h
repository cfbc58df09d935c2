#pragma once

#include "parcel/ParcelHeader.h"

#include <binder/Binder.h>

#include "Frame.h"
#include "Socket.h"

namespace platform::binder {

// Hands a transaction to `binder` on the calling thread, on which getCallingUid() and getCallingPid() name
// `caller` until it returns; a one-way transaction's pid is 0, as on the device. Returns the transaction's
// status: OK for a positive one, and the parcel's error if the reply could not be written. `reply` is empty
// before the call, and after it unless the status is OK.
android::status_t dispatch(android::BBinder& binder, Peer caller, const FrameHeader& header,
                           const android::Parcel& request, android::Parcel* reply);

}  // namespace platform::binder
