#pragma once

#include <memory>

#include <binder/BpBinder.h>
#include <utils/RefBase.h>

#include "RemoteService.h"

namespace platform::binder {

// Calls sendObituary() of a proxy when its server dies. Each watched proxy has a connection of its own to the
// server, and a thread that waits for its end and makes the call. Returns false if the server is dead
// already, or cannot be watched. A child of fork(2) does not watch what its parent watches. Thread-safe.
[[nodiscard]] bool watchForDeath(int32_t handle, std::shared_ptr<RemoteService> service,
                                 const android::wp<android::BpBinder>& proxy);
void stopWatchingForDeath(int32_t handle);

}  // namespace platform::binder
