#include "parcel/ParcelHeader.h"

#include <unistd.h>

#include <binder/IPCThreadState.h>

#include "RemoteService.h"
#include "Server.h"

namespace android {

IPCThreadState* IPCThreadState::self() {
  static thread_local IPCThreadState state;
  return &state;
}

IPCThreadState::IPCThreadState()
    : mProcess(ProcessState::self()),
      mLastError(OK),
      mServingStackPointer(nullptr),
      mCallingPid(0),
      mCallingSid(nullptr),
      mCallingUid(0),
      mWorkSource(kUnsetWorkSource),
      mPropagateWorkSource(false),
      mStrictModePolicy(0),
      mLastTransactionBinderFlags(0),
      mCallRestriction(ProcessState::CallRestriction::NONE) {
  clearCaller();
}

IPCThreadState::~IPCThreadState() = default;

// Outside a transaction a thread calls for its own process.
void IPCThreadState::clearCaller() {
  mCallingPid = getpid();
  mCallingUid = getuid();
}

pid_t IPCThreadState::getCallingPid() const {
  return mCallingPid;
}

uid_t IPCThreadState::getCallingUid() const {
  return mCallingUid;
}

// The token holds the uid above the pid.
int64_t IPCThreadState::clearCallingIdentity() {
  const auto token = static_cast<uint64_t>(mCallingUid) << 32 | static_cast<uint32_t>(mCallingPid);
  clearCaller();
  return static_cast<int64_t>(token);
}

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

status_t IPCThreadState::transact(int32_t handle, uint32_t code, const Parcel& data, Parcel* reply,
                                  uint32_t flags) {
  return platform::binder::transact(platform::binder::serviceOf(handle), code, data, reply, flags);
}

}  // namespace android
