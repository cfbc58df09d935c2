// Vectors of a parcel: int32 count, then the elements; null is the count -1 alone. Bytes are packed, a bool
// takes a word.
//
// The templates of <binder/Parcel.h> allocate as many elements as the count announces before they read one.
// These functions refuse a count that the bytes left cannot hold first.

#include "parcel/ParcelHeader.h"

#include <cstring>
#include <type_traits>

namespace android {
namespace {

// A string is at least its length, which is all that a null one has.
constexpr size_t kShortestString = sizeof(int32_t);

template <typename T>
status_t writeCount(Parcel* parcel, const std::vector<T>& values) {
  if (values.size() > static_cast<size_t>(INT32_MAX)) return BAD_VALUE;
  return parcel->writeInt32(static_cast<int32_t>(values.size()));
}

// For elements whose bytes in the parcel are their bytes in memory.
template <typename T>
status_t writePacked(Parcel* parcel, const std::vector<T>& values) {
  static_assert(std::is_arithmetic_v<T>);
  if (const status_t status = writeCount(parcel, values); status != OK) return status;
  return parcel->write(values.data(), values.size() * sizeof(T));
}

template <typename T, typename Write>
status_t writeEach(Parcel* parcel, const std::vector<T>& values, Write write) {
  status_t status = writeCount(parcel, values);
  for (auto value = values.begin(); status == OK && value != values.end(); ++value) status = write(*value);
  return status;
}

// Reads a count and leaves the position behind it. `leastElementSize` is in bytes.
status_t readCount(const Parcel& parcel, size_t leastElementSize, size_t* count) {
  int32_t announced = 0;
  if (const status_t status = parcel.readInt32(&announced); status != OK) return status;
  if (announced < 0) return UNEXPECTED_NULL;
  *count = static_cast<size_t>(announced);
  return *count > parcel.dataAvail() / leastElementSize ? BAD_VALUE : OK;
}

template <typename T>
status_t readPacked(const Parcel& parcel, std::vector<T>* values) {
  size_t count = 0;
  if (const status_t status = readCount(parcel, sizeof(T), &count); status != OK) return status;
  const void* const source = parcel.readInplace(count * sizeof(T));
  if (source == nullptr) return BAD_VALUE;
  values->resize(count);
  if (count != 0) memcpy(values->data(), source, count * sizeof(T));
  return OK;
}

// On an error the vector holds the elements before it and empty ones after.
template <typename T, typename Read>
status_t readEach(const Parcel& parcel, std::vector<T>* values, Read read) {
  size_t count = 0;
  status_t status = readCount(parcel, kShortestString, &count);
  if (status != OK) return status;
  values->clear();
  values->resize(count);
  for (size_t i = 0; status == OK && i < count; ++i) status = read(&(*values)[i]);
  return status;
}

}  // namespace

status_t Parcel::writeByteVector(const std::vector<uint8_t>& val) {
  return writePacked(this, val);
}

status_t Parcel::writeInt32Vector(const std::vector<int32_t>& val) {
  return writePacked(this, val);
}

status_t Parcel::writeInt64Vector(const std::vector<int64_t>& val) {
  return writePacked(this, val);
}

status_t Parcel::writeDoubleVector(const std::vector<double>& val) {
  return writePacked(this, val);
}

status_t Parcel::writeBoolVector(const std::vector<bool>& val) {
  return writeEach(this, val, [this](bool value) { return writeBool(value); });
}

status_t Parcel::writeString16Vector(const std::vector<String16>& val) {
  return writeEach(this, val, [this](const String16& value) { return writeString16(value); });
}

status_t Parcel::writeUtf8VectorAsUtf16Vector(const std::vector<std::string>& val) {
  return writeEach(this, val, [this](const std::string& value) { return writeUtf8AsUtf16(value); });
}

status_t Parcel::readByteVector(std::vector<uint8_t>* val) const {
  return readPacked(*this, val);
}

status_t Parcel::readInt32Vector(std::vector<int32_t>* val) const {
  return readPacked(*this, val);
}

status_t Parcel::readInt64Vector(std::vector<int64_t>* val) const {
  return readPacked(*this, val);
}

status_t Parcel::readDoubleVector(std::vector<double>* val) const {
  return readPacked(*this, val);
}

status_t Parcel::readBoolVector(std::vector<bool>* val) const {
  size_t count = 0;
  if (const status_t status = readCount(*this, sizeof(int32_t), &count); status != OK) return status;
  val->resize(count);
  for (size_t i = 0; i < count; ++i) (*val)[i] = readBool();
  return OK;
}

status_t Parcel::readString16Vector(std::vector<String16>* val) const {
  return readEach(*this, val, [this](String16* value) { return readString16(value); });
}

status_t Parcel::readUtf8VectorFromUtf16Vector(std::vector<std::string>* val) const {
  return readEach(*this, val, [this](std::string* value) { return readUtf8FromUtf16(value); });
}

}  // namespace android
