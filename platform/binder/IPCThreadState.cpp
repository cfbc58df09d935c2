#include "parcel/ParcelHeader.h"

#include <pthread.h>
#include <unistd.h>

#include <binder/IPCThreadState.h>

#include "ClientConnection.h"
#include "Dispatch.h"
#include "Server.h"

namespace android {
namespace {

thread_local IPCThreadState* tState = nullptr;

int64_t workSourceToken(int32_t workSource, bool propagate) {
  return static_cast<int64_t>(propagate) << 32 | static_cast<uint32_t>(workSource);
}

}  // namespace

IPCThreadState* IPCThreadState::self() {
  if (tState == nullptr) {
    static const pthread_key_t key = [] {
      pthread_key_t made{};
      pthread_key_create(&made, threadDestructor);
      return made;
    }();
    tState = new IPCThreadState();
    pthread_setspecific(key, tState);
  }
  return tState;
}

IPCThreadState* IPCThreadState::selfOrNull() {
  return tState;
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

void IPCThreadState::threadDestructor(void* st) {
  tState = nullptr;
  delete static_cast<IPCThreadState*>(st);
}

// Outside a transaction a thread calls for its own process.
void IPCThreadState::clearCaller() {
  mCallingPid = getpid();
  mCallingSid = nullptr;
  mCallingUid = getuid();
}

sp<ProcessState> IPCThreadState::process() {
  return mProcess;
}

pid_t IPCThreadState::getCallingPid() const {
  return mCallingPid;
}

const char* IPCThreadState::getCallingSid() const {
  return mCallingSid;
}

uid_t IPCThreadState::getCallingUid() const {
  return mCallingUid;
}

int64_t IPCThreadState::clearCallingIdentity() {
  const int64_t token = platform::binder::packIdentity({mCallingUid, mCallingPid});
  clearCaller();
  return token;
}

void IPCThreadState::restoreCallingIdentity(int64_t token) {
  const auto caller = platform::binder::unpackIdentity(token);
  mCallingUid = caller.uid;
  mCallingPid = caller.pid;
}

void IPCThreadState::setStrictModePolicy(int32_t policy) {
  mStrictModePolicy = policy;
}

int32_t IPCThreadState::getStrictModePolicy() const {
  return mStrictModePolicy;
}

int64_t IPCThreadState::setCallingWorkSourceUid(uid_t uid) {
  const int64_t token = setCallingWorkSourceUidWithoutPropagation(uid);
  mPropagateWorkSource = true;
  return token;
}

int64_t IPCThreadState::setCallingWorkSourceUidWithoutPropagation(uid_t uid) {
  const int64_t token = workSourceToken(mWorkSource, mPropagateWorkSource);
  mWorkSource = static_cast<int32_t>(uid);
  return token;
}

uid_t IPCThreadState::getCallingWorkSourceUid() const {
  return static_cast<uid_t>(mWorkSource);
}

int64_t IPCThreadState::clearCallingWorkSource() {
  return setCallingWorkSourceUid(static_cast<uid_t>(kUnsetWorkSource));
}

void IPCThreadState::restoreCallingWorkSource(int64_t token) {
  mWorkSource = static_cast<int32_t>(token & 0xffffffff);
  mPropagateWorkSource = (token >> 32) != 0;
}

void IPCThreadState::clearPropagateWorkSource() {
  mPropagateWorkSource = false;
}

bool IPCThreadState::shouldPropagateWorkSource() const {
  return mPropagateWorkSource;
}

void IPCThreadState::setLastTransactionBinderFlags(int32_t flags) {
  mLastTransactionBinderFlags = flags;
}

int32_t IPCThreadState::getLastTransactionBinderFlags() const {
  return mLastTransactionBinderFlags;
}

// Nothing is ever held back to be sent later.
void IPCThreadState::flushCommands() {}

void IPCThreadState::joinThreadPool(bool /*isMain*/) {
  platform::binder::processServer().join();
}

void IPCThreadState::stopProcess(bool /*immediate*/) {
  platform::binder::processServer().stop();
}

status_t IPCThreadState::transact(int32_t handle, uint32_t code, const Parcel& data, Parcel* reply,
                                  uint32_t flags) {
  return platform::binder::transact(handle, code, data, reply, flags);
}

}  // namespace android
