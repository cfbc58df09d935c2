// The client's side: what a proxy stands for, and the connections over which threads call it.
#pragma once

#include "parcel/ParcelHeader.h"

#include <atomic>
#include <memory>

#include <binder/BpBinder.h>

#include "ServiceDirectory.h"

namespace platform::binder {

// One server of one name for as long as it lives; when it has died it stays dead, whoever takes its address.
struct RemoteService {
  RemoteService(ServiceAddress at, ServiceIdentity who) : address(std::move(at)), identity(who) {}

  const ServiceAddress address;
  const ServiceIdentity identity;
  std::atomic<bool> dead{false};
};

// A connection to this very server; not valid where it is dead, which is then noted in `service`.
android::base::unique_fd connectTo(RemoteService& service);

// Whether the server still lives, asked of the kernel when a connection to it has ended. Notes where not.
bool isAlive(RemoteService& service);

// The proxy of whoever listens at `address`, the same one for as long as somebody holds it; null where nobody
// listens.
android::sp<android::IBinder> proxyFor(const ServiceAddress& address);

// What the handle of a proxy stands for; null for a handle that is not in use.
std::shared_ptr<RemoteService> serviceOf(int32_t handle);
// Called by the proxy when it goes.
void releaseHandle(int32_t handle);

}  // namespace platform::binder
