// The proxy of a binder object in another process.

#include "parcel/ParcelHeader.h"

#include <utility>

#include <binder/BpBinder.h>
#include <binder/IPCThreadState.h>

#include "DeathWatch.h"
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
  if (mObituaries != nullptr) {
    platform::binder::stopWatchingForDeath(mHandle);
    delete mObituaries;
  }
  platform::binder::releaseHandle(mHandle);
}

int32_t BpBinder::handle() const {
  return mHandle;
}

// Asked of the remote object once; an answer that fails is an empty descriptor, and asked for again.
const String16& BpBinder::getInterfaceDescriptor() const {
  if (!isDescriptorCached()) {
    Parcel data;
    Parcel reply;
    const status_t status = const_cast<BpBinder*>(this)->transact(INTERFACE_TRANSACTION, data, &reply);
    if (status == OK) {
      const String16 descriptor = reply.readString16();
      AutoMutex guard(mLock);
      if (mDescriptorCache.size() == 0) mDescriptorCache = descriptor;
    }
  }
  return mDescriptorCache;
}

bool BpBinder::isBinderAlive() const {
  return mAlive != 0;
}

status_t BpBinder::pingBinder() {
  Parcel data;
  Parcel reply;
  return transact(PING_TRANSACTION, data, &reply);
}

// The descriptor to write to would have to travel.
status_t BpBinder::dump(int /*fd*/, const Vector<String16>& /*args*/) {
  return INVALID_OPERATION;
}

status_t BpBinder::transact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) {
  if (!mAlive) return DEAD_OBJECT;
  const status_t status = IPCThreadState::self()->transact(mHandle, code, data, reply, flags);
  if (status == DEAD_OBJECT) mAlive = 0;
  return status;
}

status_t BpBinder::linkToDeath(const sp<DeathRecipient>& recipient, void* cookie, uint32_t flags) {
  if (recipient == nullptr) return BAD_VALUE;
  AutoMutex guard(mLock);
  if (mObitsSent) return DEAD_OBJECT;
  if (mObituaries == nullptr) {
    auto service = platform::binder::serviceOf(mHandle);
    if (service == nullptr || !platform::binder::watchForDeath(mHandle, std::move(service), this)) {
      return DEAD_OBJECT;
    }
    mObituaries = new Vector<Obituary>;
  }
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
    if (mObituaries->isEmpty()) {
      platform::binder::stopWatchingForDeath(mHandle);
      delete std::exchange(mObituaries, nullptr);
    }
    return OK;
  }
  return NAME_NOT_FOUND;
}

void BpBinder::sendObituary() {
  Vector<Obituary>* obituaries = nullptr;
  {
    AutoMutex guard(mLock);
    mAlive = 0;
    mObitsSent = 1;
    obituaries = std::exchange(mObituaries, nullptr);
  }
  if (obituaries == nullptr) return;
  for (size_t i = 0; i < obituaries->size(); ++i) reportOneDeath(obituaries->itemAt(i));
  delete obituaries;
}

void BpBinder::attachObject(const void* objectID, void* object, void* cleanupCookie,
                            object_cleanup_func func) {
  AutoMutex guard(mLock);
  mObjects.attach(objectID, object, cleanupCookie, func);
}

void* BpBinder::findObject(const void* objectID) const {
  AutoMutex guard(mLock);
  return mObjects.find(objectID);
}

void BpBinder::detachObject(const void* objectID) {
  AutoMutex guard(mLock);
  mObjects.detach(objectID);
}

BpBinder* BpBinder::remoteBinder() {
  return this;
}

void BpBinder::onFirstRef() {}

void BpBinder::onLastStrongRef(const void* /*id*/) {}

// Asked only of objects that live on weak references, and a proxy lives on strong ones.
bool BpBinder::onIncStrongAttempted(uint32_t /*flags*/, const void* /*id*/) {
  return false;
}

void BpBinder::reportOneDeath(const Obituary& obit) {
  if (const auto recipient = obit.recipient.promote(); recipient != nullptr) recipient->binderDied(this);
}

bool BpBinder::isDescriptorCached() const {
  AutoMutex guard(mLock);
  return mDescriptorCache.size() != 0;
}

BpBinder::ObjectManager::ObjectManager() = default;

BpBinder::ObjectManager::~ObjectManager() {
  kill();
}

void BpBinder::ObjectManager::attach(const void* objectID, void* object, void* cleanupCookie,
                                     IBinder::object_cleanup_func func) {
  if (mObjects.indexOfKey(objectID) < 0) mObjects.add(objectID, entry_t{object, cleanupCookie, func});
}

void* BpBinder::ObjectManager::find(const void* objectID) const {
  const ssize_t index = mObjects.indexOfKey(objectID);
  return index >= 0 ? mObjects.valueAt(static_cast<size_t>(index)).object : nullptr;
}

void BpBinder::ObjectManager::detach(const void* objectID) {
  mObjects.removeItem(objectID);
}

void BpBinder::ObjectManager::kill() {
  for (size_t i = 0; i < mObjects.size(); ++i) {
    const entry_t& entry = mObjects.valueAt(i);
    if (entry.func != nullptr) entry.func(mObjects.keyAt(i), entry.object, entry.cleanupCookie);
  }
  mObjects.clear();
}

}  // namespace android
