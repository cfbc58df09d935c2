// Binder objects and file descriptors: none of them travels through this carrier. A null binder does, in the
// 28 bytes that it has on the device: the flat object, then the stability word.

#include "parcel/ParcelHeader.h"

#include <array>

#include <android-base/unique_fd.h>

namespace android {
namespace {

constexpr uint32_t kTypeBinder = 0x73622a85;  // 'sb*', a binder of the sender or none
constexpr uint32_t kTypeHandle = 0x73682a85;  // 'sh*', a binder of another process
constexpr uint32_t kAcceptsFdsAtDefaultPriority = 0x113;
// Byte 0 is the version of the word, byte 3 the level: none is declared for a null binder.
constexpr uint32_t kUndeclaredStability = 0x00000001;

// type, flags, the object (64 bits), the cookie (64 bits), stability
using FlatBinder = std::array<uint32_t, 7>;
constexpr FlatBinder kNullBinder = {kTypeBinder, kAcceptsFdsAtDefaultPriority, 0, 0, 0,
                                    0,           kUndeclaredStability};

status_t refuseDescriptor(int fd, bool takeOwnership) {
  if (takeOwnership) base::unique_fd{fd};
  return INVALID_OPERATION;
}

}  // namespace

status_t Parcel::writeStrongBinder(const sp<IBinder>& val) {
  if (val != nullptr) return INVALID_OPERATION;
  return write(kNullBinder.data(), sizeof(kNullBinder));
}

status_t Parcel::readNullableStrongBinder(sp<IBinder>* val) const {
  val->clear();
  FlatBinder flat;
  if (const status_t status = read(flat.data(), sizeof(flat)); status != OK) return status;
  const auto [type, flags, low, high, cookieLow, cookieHigh, stability] = flat;
  if (type != kTypeBinder && type != kTypeHandle) return BAD_TYPE;
  if (type == kTypeHandle || low != 0 || high != 0) return INVALID_OPERATION;
  return stability == kUndeclaredStability ? OK : BAD_TYPE;
}

status_t Parcel::readStrongBinder(sp<IBinder>* val) const {
  const status_t status = readNullableStrongBinder(val);
  return status == OK && *val == nullptr ? UNEXPECTED_NULL : status;
}

sp<IBinder> Parcel::readStrongBinder() const {
  sp<IBinder> value;
  readNullableStrongBinder(&value);
  return value;
}

status_t Parcel::writeFileDescriptor(int fd, bool takeOwnership) {
  return refuseDescriptor(fd, takeOwnership);
}

status_t Parcel::writeDupFileDescriptor(int /*fd*/) {
  return INVALID_OPERATION;
}

status_t Parcel::writeParcelFileDescriptor(int fd, bool takeOwnership) {
  return refuseDescriptor(fd, takeOwnership);
}

status_t Parcel::writeDupParcelFileDescriptor(int /*fd*/) {
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
