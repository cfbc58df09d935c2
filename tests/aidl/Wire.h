// A binder object seen through its transactions alone, as a remote one is.
#pragma once

#include <utility>
#include <vector>

#include "dev/kerno/internal/diagnostics/BinderHeaders.h"

namespace wire {

// Hides that its target is local, so that interface_cast gives a proxy and every call goes through parcels.
class Remote : public android::BBinder {
 public:
  explicit Remote(android::sp<android::IBinder> target) : mTarget(std::move(target)) {}

  uint32_t lastFlags() const { return mLastFlags; }

 protected:
  android::status_t onTransact(uint32_t code, const android::Parcel& data, android::Parcel* reply,
                               uint32_t flags) override {
    mLastFlags = flags;
    return mTarget->transact(code, data, reply, flags);
  }

 private:
  const android::sp<android::IBinder> mTarget;
  uint32_t mLastFlags = 0;
};

inline std::vector<uint8_t> bytes(const android::Parcel& parcel) {
  return {parcel.data(), parcel.data() + parcel.dataSize()};
}

// The bytes that reply holds where nothing but this status was written.
inline std::vector<uint8_t> statusBytes(int32_t exceptionCode) {
  android::Parcel parcel;
  android::binder::Status::fromExceptionCode(exceptionCode).writeToParcel(&parcel);
  return bytes(parcel);
}

}  // namespace wire
