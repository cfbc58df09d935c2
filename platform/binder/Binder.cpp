// The local side of binder: the base classes of every interface, and the object that serves one.
//
// Only what this project's interfaces and their clients use is implemented. A program that needs more of the
// platform's headers does not link.

#include "parcel/ParcelHeader.h"

#include <binder/Binder.h>
#include <binder/IInterface.h>
#include <binder/Stability.h>
#include <utils/misc.h>

#include "Log.h"

namespace android {

IBinder::IBinder() = default;

IBinder::~IBinder() = default;

sp<IInterface> IBinder::queryLocalInterface(const String16& /*descriptor*/) {
  return nullptr;
}

bool IBinder::checkSubclass(const void* /*subclassID*/) const {
  return false;
}

BBinder* IBinder::localBinder() {
  return nullptr;
}

BpBinder* IBinder::remoteBinder() {
  return nullptr;
}

BBinder::BBinder() : mExtras(nullptr), mReserved0(nullptr) {}

BBinder::~BBinder() = default;

const String16& BBinder::getInterfaceDescriptor() const {
  static const auto& kNone = *new String16();
  return kNone;
}

bool BBinder::isBinderAlive() const {
  return true;
}

status_t BBinder::pingBinder() {
  return OK;
}

status_t BBinder::dump(int /*fd*/, const Vector<String16>& /*args*/) {
  return OK;
}

status_t BBinder::transact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) {
  data.setDataPosition(0);
  const status_t status = code == PING_TRANSACTION ? OK : onTransact(code, data, reply, flags);
  if (reply != nullptr) reply->setDataPosition(0);
  return status;
}

status_t BBinder::linkToDeath(const sp<DeathRecipient>& /*recipient*/, void* /*cookie*/, uint32_t /*flags*/) {
  return INVALID_OPERATION;
}

status_t BBinder::unlinkToDeath(const wp<DeathRecipient>& /*recipient*/, void* /*cookie*/, uint32_t /*flags*/,
                                wp<DeathRecipient>* /*outRecipient*/) {
  return INVALID_OPERATION;
}

void BBinder::attachObject(const void* /*objectID*/, void* /*object*/, void* /*cleanupCookie*/,
                           object_cleanup_func /*func*/) {
  LOG_ALWAYS_FATAL("binders have no attached objects here");
}

void* BBinder::findObject(const void* /*objectID*/) const {
  return nullptr;
}

void BBinder::detachObject(const void* /*objectID*/) {}

BBinder* BBinder::localBinder() {
  return this;
}

status_t BBinder::onTransact(uint32_t code, const Parcel& /*data*/, Parcel* reply, uint32_t /*flags*/) {
  switch (code) {
    case INTERFACE_TRANSACTION:
      return reply != nullptr ? reply->writeString16(getInterfaceDescriptor()) : UNEXPECTED_NULL;
    case DUMP_TRANSACTION:
    case SHELL_COMMAND_TRANSACTION:
      // Both carry file descriptors, which do not travel here.
      return INVALID_OPERATION;
    case SYSPROPS_TRANSACTION:
      report_sysprop_change();
      return OK;
    default:
      return UNKNOWN_TRANSACTION;
  }
}

BpRefBase::BpRefBase(const sp<IBinder>& o) : mRemote(o.get()), mRefs(nullptr), mState(0) {
  if (mRemote != nullptr) mRemote->incStrong(this);
}

BpRefBase::~BpRefBase() {
  if (mRemote != nullptr) mRemote->decStrong(this);
}

void BpRefBase::onFirstRef() {}

void BpRefBase::onLastStrongRef(const void* /*id*/) {}

// Called only for objects that live on weak references; a proxy lives on strong ones.
bool BpRefBase::onIncStrongAttempted(uint32_t /*flags*/, const void* /*id*/) {
  return false;
}

IInterface::IInterface() = default;

IInterface::~IInterface() = default;

sp<IBinder> IInterface::asBinder(const IInterface* iface) {
  return iface != nullptr ? const_cast<IInterface*>(iface)->onAsBinder() : nullptr;
}

sp<IBinder> IInterface::asBinder(const sp<IInterface>& iface) {
  return asBinder(iface.get());
}

// Called by stubs that aidl-cpp has generated. Binders do not travel in parcels here, so nothing ever asks
// for the level of one.
void internal::Stability::markCompilationUnit(IBinder* /*binder*/) {}

}  // namespace android
