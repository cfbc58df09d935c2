#pragma once

#include <memory>

#include <binder/BpBinder.h>
#include <utils/RefBase.h>

namespace platform::binder {

struct RemoteService;

// Calls sendObituary() of a proxy when its server dies, on a thread that exists while anything is watched.
// It has a connection of its own to each server, whose end it waits for. False where the server is dead
// already. Thread-safe.
[[nodiscard]] bool watchForDeath(int32_t handle, std::shared_ptr<RemoteService> service,
                                 const android::wp<android::BpBinder>& proxy);
void stopWatchingForDeath(int32_t handle);

}  // namespace platform::binder
