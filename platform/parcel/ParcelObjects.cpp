// Binder objects and file descriptors. This carrier transports neither: writing or reading one gives
// INVALID_OPERATION. A null binder is data, in the 28 bytes that it has on the device.

#include "parcel/ParcelHeader.h"

#include <array>

#include <android-base/unique_fd.h>
#include <binder/IBinder.h>

namespace android {
namespace {

constexpr uint32_t kTypeBinder = 0x73622a85;  // 'sb*', a binder of the sender, or null
constexpr uint32_t kTypeHandle = 0x73682a85;  // 'sh*', a binder of another process
constexpr uint32_t kAcceptsFdsAtDefaultPriority = 0x113;
// Byte 0 is the version of the word, byte 3 the level. A null binder declares no level.
constexpr uint32_t kUndeclaredStability = 0x00000001;

// type, flags, the object (64 bits), the cookie (64 bits), stability
using FlatBinder = std::array<uint32_t, 7>;
constexpr FlatBinder kNullBinder = {kTypeBinder, kAcceptsFdsAtDefaultPriority, 0, 0, 0,
                                    0,           kUndeclaredStability};

}  // namespace

status_t Parcel::writeStrongBinder(const sp<IBinder>& val) {
  if (val != nullptr) return INVALID_OPERATION;
  return write(kNullBinder.data(), sizeof(kNullBinder));
}

// Returns OK for a null binder, INVALID_OPERATION for another, BAD_TYPE for bytes that are no binder. `val`
// is null afterwards in all cases.
status_t Parcel::readNullableStrongBinder(sp<IBinder>* val) const {
  val->clear();
  FlatBinder flat;
  if (const status_t status = read(flat.data(), sizeof(flat)); status != OK) return status;
  const auto [type, flags, low, high, cookieLow, cookieHigh, stability] = flat;
  if (type != kTypeBinder && type != kTypeHandle) return BAD_TYPE;
  if (type == kTypeHandle || low != 0 || high != 0) return INVALID_OPERATION;
  return stability == kUndeclaredStability ? OK : BAD_TYPE;
}

// Never returns OK: the only binder that can be read is null, which this call does not accept.
status_t Parcel::readStrongBinder(sp<IBinder>* val) const {
  const status_t status = readNullableStrongBinder(val);
  return status == OK ? UNEXPECTED_NULL : status;
}

status_t Parcel::writeFileDescriptor(int fd, bool takeOwnership) {
  // The caller gave the descriptor away, so nobody else closes it.
  if (takeOwnership) base::unique_fd{fd};
  return INVALID_OPERATION;
}

status_t Parcel::writeDupFileDescriptor(int /*fd*/) {
  return INVALID_OPERATION;
}

status_t Parcel::writeUniqueFileDescriptor(const base::unique_fd& /*fd*/) {
  return INVALID_OPERATION;
}

int Parcel::readFileDescriptor() const {
  return INVALID_OPERATION;
}

status_t Parcel::readUniqueFileDescriptor(base::unique_fd* /*val*/) const {
  return INVALID_OPERATION;
}

}  // namespace android
