#include "Dispatch.h"

#include <algorithm>

#include <binder/IPCThreadState.h>

namespace platform::binder {
namespace {

// A token for IPCThreadState::restoreCallingIdentity(). clearCallingIdentity() would give one too, for two
// system calls.
int64_t identityToken(Peer caller) {
  return static_cast<int64_t>(static_cast<uint64_t>(caller.uid) << 32 | static_cast<uint32_t>(caller.pid));
}

}  // namespace

android::status_t dispatch(android::BBinder& binder, Peer caller, const FrameHeader& header,
                           const android::Parcel& request, android::Parcel* reply) {
  if (isOneWay(header)) caller.pid = 0;
  android::IPCThreadState* const thread = android::IPCThreadState::self();
  const int64_t own = identityToken({thread->getCallingUid(), thread->getCallingPid()});
  thread->restoreCallingIdentity(identityToken(caller));
  android::status_t status = binder.transact(header.value, request, reply, header.flags);
  thread->restoreCallingIdentity(own);
  if (status >= android::OK) status = reply->errorCheck();
  if (status != android::OK) reply->freeData();
  return status;
}

}  // namespace platform::binder
