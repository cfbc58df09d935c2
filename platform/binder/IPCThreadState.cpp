#include "parcel/ParcelHeader.h"

#include <unistd.h>

#include <binder/IPCThreadState.h>

#include "Server.h"

namespace android {

IPCThreadState* IPCThreadState::self() {
  static thread_local IPCThreadState state;
  return &state;
}

// Outside a transaction a thread calls for its own process. The other members belong to the kernel's driver,
// which does not exist here. Nothing reads them.
IPCThreadState::IPCThreadState() : mCallingPid(getpid()), mCallingUid(getuid()) {}

IPCThreadState::~IPCThreadState() = default;

pid_t IPCThreadState::getCallingPid() const {
  return mCallingPid;
}

uid_t IPCThreadState::getCallingUid() const {
  return mCallingUid;
}

// The token holds the uid above the pid.
void IPCThreadState::restoreCallingIdentity(int64_t token) {
  mCallingUid = static_cast<uid_t>(static_cast<uint64_t>(token) >> 32);
  mCallingPid = static_cast<pid_t>(token & 0xffffffff);
}

void IPCThreadState::joinThreadPool(bool /*isMain*/) {
  platform::binder::processServer().join();
}

void IPCThreadState::stopProcess(bool /*immediate*/) {
  platform::binder::processServer().stop();
}

}  // namespace android
