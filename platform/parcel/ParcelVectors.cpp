// Vectors of a parcel: int32 count, then the elements; null is the count -1 alone. Bytes are packed, a bool
// takes a word.

#include "parcel/ParcelHeader.h"

#include <cstring>

namespace android {
namespace {

// A string is at least its length, which is all that a null one has.
constexpr size_t kShortestString = sizeof(int32_t);

// Looks at the count at the position. The templates of <binder/Parcel.h> allocate as many elements as the
// count announces before they read one, so every read asks here first. Returns BAD_VALUE if the bytes after
// the count cannot hold so many elements of `leastElementSize` bytes. Returns OK with the position at the
// count.
status_t checkCount(const Parcel& parcel, size_t leastElementSize) {
  const size_t start = parcel.dataPosition();
  int32_t count = 0;
  if (const status_t status = parcel.readInt32(&count); status != OK) return status;
  if (count < 0) return UNEXPECTED_NULL;
  if (static_cast<size_t>(count) > parcel.dataAvail() / leastElementSize) return BAD_VALUE;
  parcel.setDataPosition(start);
  return OK;
}

}  // namespace

status_t Parcel::writeByteVector(const std::vector<uint8_t>& val) {
  const status_t status = writeVectorSize(val);
  return status == OK ? write(val.data(), val.size()) : status;
}

status_t Parcel::writeInt32Vector(const std::vector<int32_t>& val) {
  return writeTypedVector(val, &Parcel::writeInt32);
}

status_t Parcel::writeInt64Vector(const std::vector<int64_t>& val) {
  return writeTypedVector(val, &Parcel::writeInt64);
}

status_t Parcel::writeDoubleVector(const std::vector<double>& val) {
  return writeTypedVector(val, &Parcel::writeDouble);
}

status_t Parcel::writeBoolVector(const std::vector<bool>& val) {
  return writeTypedVector(val, &Parcel::writeBool);
}

status_t Parcel::writeString16Vector(const std::vector<String16>& val) {
  return writeTypedVector(val, &Parcel::writeString16);
}

status_t Parcel::writeUtf8VectorAsUtf16Vector(const std::vector<std::string>& val) {
  return writeTypedVector(val, &Parcel::writeUtf8AsUtf16);
}

status_t Parcel::readByteVector(std::vector<uint8_t>* val) const {
  if (const status_t status = checkCount(*this, sizeof(uint8_t)); status != OK) return status;
  const auto count = static_cast<size_t>(readInt32());
  const auto* const bytes = static_cast<const uint8_t*>(readInplace(count));
  if (bytes == nullptr) return BAD_VALUE;
  val->assign(bytes, bytes + count);
  return OK;
}

status_t Parcel::readInt32Vector(std::vector<int32_t>* val) const {
  const status_t status = checkCount(*this, sizeof(int32_t));
  return status == OK ? readTypedVector(val, &Parcel::readInt32) : status;
}

status_t Parcel::readInt64Vector(std::vector<int64_t>* val) const {
  const status_t status = checkCount(*this, sizeof(int64_t));
  return status == OK ? readTypedVector(val, &Parcel::readInt64) : status;
}

status_t Parcel::readDoubleVector(std::vector<double>* val) const {
  const status_t status = checkCount(*this, sizeof(double));
  return status == OK ? readTypedVector(val, &Parcel::readDouble) : status;
}

status_t Parcel::readBoolVector(std::vector<bool>* val) const {
  if (const status_t status = checkCount(*this, sizeof(int32_t)); status != OK) return status;
  val->resize(static_cast<size_t>(readInt32()));
  for (auto value : *val) value = readBool();
  return OK;
}

status_t Parcel::readString16Vector(std::vector<String16>* val) const {
  const status_t status = checkCount(*this, kShortestString);
  return status == OK ? readTypedVector(val, &Parcel::readString16) : status;
}

status_t Parcel::readUtf8VectorFromUtf16Vector(std::vector<std::string>* val) const {
  const status_t status = checkCount(*this, kShortestString);
  return status == OK ? readTypedVector(val, &Parcel::readUtf8FromUtf16) : status;
}

}  // namespace android
