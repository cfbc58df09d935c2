// The local side of binder: the base classes of every interface, and the object that serves one.

#include "parcel/ParcelHeader.h"

#include <map>
#include <mutex>

#include <unistd.h>

#include <binder/Binder.h>
#include <binder/IInterface.h>
#include <utils/misc.h>

namespace android {

IBinder::IBinder() = default;

IBinder::~IBinder() = default;

sp<IInterface> IBinder::queryLocalInterface(const String16& /*descriptor*/) {
  return nullptr;
}

status_t IBinder::getExtension(sp<IBinder>* out) {
  if (BBinder* const local = localBinder(); local != nullptr) {
    *out = local->getExtension();
    return OK;
  }
  Parcel data;
  Parcel reply;
  if (const status_t status = transact(EXTENSION_TRANSACTION, data, &reply); status != OK) return status;
  return reply.readNullableStrongBinder(out);
}

status_t IBinder::getDebugPid(pid_t* outPid) {
  if (BBinder* const local = localBinder(); local != nullptr) {
    *outPid = local->getDebugPid();
    return OK;
  }
  Parcel data;
  Parcel reply;
  if (const status_t status = transact(DEBUG_PID_TRANSACTION, data, &reply); status != OK) return status;
  return reply.readInt32(outPid);
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

// What few binders have: objects attached to them, an extension, a wish for the caller's security context.
class BBinder::Extras {
 public:
  Extras() = default;
  Extras(const Extras&) = delete;
  Extras& operator=(const Extras&) = delete;
  ~Extras() {
    for (const auto& [id, attached] : mAttached) {
      if (attached.clean != nullptr) attached.clean(id, attached.object, attached.cookie);
    }
  }

  void attach(const void* id, void* object, void* cookie, object_cleanup_func clean) {
    std::lock_guard guard(mMutex);
    mAttached.try_emplace(id, Attached{object, cookie, clean});
  }
  void* find(const void* id) {
    std::lock_guard guard(mMutex);
    const auto entry = mAttached.find(id);
    return entry != mAttached.end() ? entry->second.object : nullptr;
  }
  void detach(const void* id) {
    std::lock_guard guard(mMutex);
    mAttached.erase(id);
  }

  // Both are set before the binder is handed out and only read after that.
  sp<IBinder> extension;
  bool requestingSid = false;

 private:
  struct Attached {
    void* object;
    void* cookie;
    object_cleanup_func clean;
  };
  std::mutex mMutex;
  std::map<const void*, Attached> mAttached;
};

BBinder::BBinder() : mExtras(nullptr), mReserved0(nullptr) {}

BBinder::~BBinder() {
  delete mExtras.load();
}

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
  status_t status = OK;
  switch (code) {
    case PING_TRANSACTION:
      break;
    case EXTENSION_TRANSACTION:
      status = reply != nullptr ? reply->writeStrongBinder(getExtension()) : UNEXPECTED_NULL;
      break;
    case DEBUG_PID_TRANSACTION:
      status = reply != nullptr ? reply->writeInt32(getDebugPid()) : UNEXPECTED_NULL;
      break;
    default:
      status = onTransact(code, data, reply, flags);
      break;
  }
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

void BBinder::attachObject(const void* objectID, void* object, void* cleanupCookie,
                           object_cleanup_func func) {
  getOrCreateExtras()->attach(objectID, object, cleanupCookie, func);
}

void* BBinder::findObject(const void* objectID) const {
  Extras* const extras = mExtras.load(std::memory_order_acquire);
  return extras != nullptr ? extras->find(objectID) : nullptr;
}

void BBinder::detachObject(const void* objectID) {
  if (Extras* const extras = mExtras.load(std::memory_order_acquire); extras != nullptr) {
    extras->detach(objectID);
  }
}

BBinder* BBinder::localBinder() {
  return this;
}

bool BBinder::isRequestingSid() {
  const Extras* const extras = mExtras.load(std::memory_order_acquire);
  return extras != nullptr && extras->requestingSid;
}

void BBinder::setRequestingSid(bool requestSid) {
  getOrCreateExtras()->requestingSid = requestSid;
}

sp<IBinder> BBinder::getExtension() {
  const Extras* const extras = mExtras.load(std::memory_order_acquire);
  return extras != nullptr ? extras->extension : nullptr;
}

void BBinder::setExtension(const sp<IBinder>& extension) {
  getOrCreateExtras()->extension = extension;
}

pid_t BBinder::getDebugPid() {
  return getpid();
}

status_t BBinder::onTransact(uint32_t code, const Parcel& /*data*/, Parcel* reply, uint32_t /*flags*/) {
  switch (code) {
    case INTERFACE_TRANSACTION:
      return reply != nullptr ? reply->writeString16(getInterfaceDescriptor()) : UNEXPECTED_NULL;
    case DUMP_TRANSACTION:
    case SHELL_COMMAND_TRANSACTION:
      // Both hand over file descriptors, which do not travel here.
      return INVALID_OPERATION;
    case SYSPROPS_TRANSACTION:
      report_sysprop_change();
      return OK;
    default:
      return UNKNOWN_TRANSACTION;
  }
}

BBinder::Extras* BBinder::getOrCreateExtras() {
  Extras* extras = mExtras.load(std::memory_order_acquire);
  if (extras != nullptr) return extras;
  auto made = std::make_unique<Extras>();
  if (mExtras.compare_exchange_strong(extras, made.get(), std::memory_order_acq_rel)) return made.release();
  return extras;  // another thread was first
}

BpRefBase::BpRefBase(const sp<IBinder>& o) : mRemote(o.get()), mRefs(nullptr), mState(0) {
  if (mRemote != nullptr) mRemote->incStrong(this);
}

BpRefBase::~BpRefBase() {
  if (mRemote != nullptr) mRemote->decStrong(this);
}

void BpRefBase::onFirstRef() {}

void BpRefBase::onLastStrongRef(const void* /*id*/) {}

// Asked only of objects that live on weak references, and a proxy lives on strong ones.
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

}  // namespace android
