// The proxy of a binder object in another process.

#include "parcel/ParcelHeader.h"

#include <utility>

#include <binder/BpBinder.h>

#include "Log.h"
#include "RemoteService.h"

namespace android {

BpBinder* BpBinder::create(int32_t handle) {
  return new BpBinder(handle, -1);
}

BpBinder::BpBinder(int32_t handle, int32_t trackedUid)
    : mHandle(handle),
      mAlive(1),
      mObitsSent(0),
      mObituaries(nullptr),
      mConstantData(nullptr),
      mTrackedUid(trackedUid) {}

BpBinder::~BpBinder() {
  delete mObituaries;
}

int32_t BpBinder::handle() const {
  return mHandle;
}

// Asks the remote object once. If that fails, the descriptor is empty and the next call asks again.
const String16& BpBinder::getInterfaceDescriptor() const {
  {
    AutoMutex guard(mLock);
    if (mDescriptorCache.size() != 0) return mDescriptorCache;
  }
  Parcel data;
  Parcel reply;
  const_cast<BpBinder*>(this)->transact(INTERFACE_TRANSACTION, data, &reply);
  const String16 descriptor = reply.readString16();
  AutoMutex guard(mLock);
  if (mDescriptorCache.size() == 0) mDescriptorCache = descriptor;
  return mDescriptorCache;
}

bool BpBinder::isBinderAlive() const {
  return __atomic_load_n(&mAlive, __ATOMIC_RELAXED) != 0;
}

status_t BpBinder::pingBinder() {
  Parcel data;
  Parcel reply;
  return transact(PING_TRANSACTION, data, &reply);
}

// File descriptors do not travel here.
status_t BpBinder::dump(int /*fd*/, const Vector<String16>& /*args*/) {
  return INVALID_OPERATION;
}

status_t BpBinder::transact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) {
  if (!isBinderAlive()) return DEAD_OBJECT;
  const status_t status =
      platform::binder::transact(platform::binder::serviceOf(mHandle), code, data, reply, flags);
  if (status == DEAD_OBJECT) __atomic_store_n(&mAlive, 0, __ATOMIC_RELAXED);
  return status;
}

status_t BpBinder::linkToDeath(const sp<DeathRecipient>& recipient, void* cookie, uint32_t flags) {
  if (recipient == nullptr) return BAD_VALUE;
  AutoMutex guard(mLock);
  if (mObitsSent) return DEAD_OBJECT;
  if (!platform::binder::watchForDeath(*this)) return DEAD_OBJECT;
  if (mObituaries == nullptr) mObituaries = new Vector<Obituary>;
  const ssize_t index = mObituaries->add(Obituary{recipient, cookie, flags});
  return index >= 0 ? OK : static_cast<status_t>(index);
}

status_t BpBinder::unlinkToDeath(const wp<DeathRecipient>& recipient, void* cookie, uint32_t flags,
                                 wp<DeathRecipient>* outRecipient) {
  AutoMutex guard(mLock);
  if (mObitsSent) return DEAD_OBJECT;
  const size_t count = mObituaries != nullptr ? mObituaries->size() : 0;
  for (size_t i = 0; i < count; ++i) {
    const Obituary& obituary = mObituaries->itemAt(i);
    const bool same = obituary.recipient == recipient ||
                      (recipient == nullptr && cookie != nullptr && obituary.cookie == cookie);
    if (!same || obituary.flags != flags) continue;
    if (outRecipient != nullptr) *outRecipient = obituary.recipient;
    mObituaries->removeAt(i);
    return OK;
  }
  return NAME_NOT_FOUND;
}

void BpBinder::sendObituary() {
  Vector<Obituary>* obituaries = nullptr;
  {
    AutoMutex guard(mLock);
    __atomic_store_n(&mAlive, 0, __ATOMIC_RELAXED);
    mObitsSent = 1;
    obituaries = std::exchange(mObituaries, nullptr);
  }
  if (obituaries == nullptr) return;
  for (size_t i = 0; i < obituaries->size(); ++i) {
    const auto recipient = obituaries->itemAt(i).recipient.promote();
    if (recipient != nullptr) recipient->binderDied(this);
  }
  delete obituaries;
}

void BpBinder::attachObject(const void* /*objectID*/, void* /*object*/, void* /*cleanupCookie*/,
                            object_cleanup_func /*func*/) {
  LOG_ALWAYS_FATAL("binders have no attached objects here");
}

void* BpBinder::findObject(const void* /*objectID*/) const {
  return nullptr;
}

void BpBinder::detachObject(const void* /*objectID*/) {}

BpBinder* BpBinder::remoteBinder() {
  return this;
}

void BpBinder::onFirstRef() {}

void BpBinder::onLastStrongRef(const void* /*id*/) {}

// Called only for objects that live on weak references; a proxy lives on strong ones.
bool BpBinder::onIncStrongAttempted(uint32_t /*flags*/, const void* /*id*/) {
  return false;
}

// The class has one as a member; see attachObject().
BpBinder::ObjectManager::ObjectManager() = default;

BpBinder::ObjectManager::~ObjectManager() = default;

}  // namespace android
