#include "Dispatch.h"

#include <binder/IPCThreadState.h>

namespace platform::binder {
namespace {

// The parcels of a worker keep up to this much memory.
constexpr size_t kKeptCapacity = size_t{64} * 1024;

void clear(android::Parcel& parcel) {
  if (parcel.dataCapacity() > kKeptCapacity || parcel.errorCheck() != android::OK) {
    parcel.freeData();
  } else {
    parcel.setDataSize(0);
  }
}

// Puts a transaction's circumstances on the thread and takes them off again.
class CallingScope {
 public:
  CallingScope(Peer caller, uint32_t flags)
      : mThread(android::IPCThreadState::self()),
        mIdentity(mThread->clearCallingIdentity()),
        mFlags(mThread->getLastTransactionBinderFlags()),
        mStrictModePolicy(mThread->getStrictModePolicy()) {
    mThread->restoreCallingIdentity(packIdentity(caller));
    mThread->setLastTransactionBinderFlags(static_cast<int32_t>(flags));
    mThread->clearCallingWorkSource();
    mThread->clearPropagateWorkSource();
  }
  ~CallingScope() {
    mThread->clearPropagateWorkSource();
    mThread->setStrictModePolicy(mStrictModePolicy);
    mThread->setLastTransactionBinderFlags(mFlags);
    mThread->restoreCallingIdentity(mIdentity);
  }
  CallingScope(const CallingScope&) = delete;
  CallingScope& operator=(const CallingScope&) = delete;

 private:
  android::IPCThreadState* const mThread;
  const int64_t mIdentity;
  const int32_t mFlags;
  const int32_t mStrictModePolicy;
};

}  // namespace

android::status_t dispatch(android::BBinder& binder, Peer caller, const Frame& frame, Worker& worker) {
  const uint32_t flags = frame.header.flags;
  const bool oneway = (flags & android::IBinder::FLAG_ONEWAY) != 0;
  clear(worker.reply);
  clear(worker.request);
  android::status_t status = worker.request.setData(frame.payload, frame.header.size);
  if (status == android::OK) {
    const CallingScope scope(oneway ? Peer{caller.uid, 0} : caller, flags);
    status = binder.transact(frame.header.value, worker.request, &worker.reply, flags);
  }
  // A positive result counts as success.
  if (status > android::OK) status = android::OK;
  if (status == android::OK) status = worker.reply.errorCheck();
  if (status != android::OK) clear(worker.reply);
  return status;
}

}  // namespace platform::binder
