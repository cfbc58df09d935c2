// Vectors of a parcel: int32 count, then the elements; null is the count -1 alone. Bytes are packed, bool and
// char16_t take a word each. A count is checked against the bytes that are left before anything is allocated,
// so these do not use the templates of <binder/Parcel.h>, which allocate first.

#include "parcel/ParcelHeader.h"

#include <cstring>
#include <type_traits>

namespace android {
namespace {

constexpr int32_t kNull = -1;
// The shortest string is the null one, which is just its length.
constexpr size_t kShortestString = sizeof(int32_t);

template <typename T>
status_t writeCount(Parcel* parcel, const std::vector<T>& values) {
  if (values.size() > static_cast<size_t>(INT32_MAX)) return BAD_VALUE;
  return parcel->writeInt32(static_cast<int32_t>(values.size()));
}

// Elements that lie in the parcel as they lie in memory.
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

template <typename T>
status_t writePackedOrNull(Parcel* parcel, const std::unique_ptr<std::vector<T>>& values) {
  return values ? writePacked(parcel, *values) : parcel->writeInt32(kNull);
}

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

// Elements that take a word each.
template <typename T>
status_t readWords(const Parcel& parcel, std::vector<T>* values) {
  size_t count = 0;
  if (const status_t status = readCount(parcel, sizeof(int32_t), &count); status != OK) return status;
  values->resize(count);
  for (size_t i = 0; i < count; ++i) (*values)[i] = static_cast<T>(parcel.readInt32());
  return OK;
}

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

// `read` finds the position at the count.
template <typename T, typename Read>
status_t readOrNull(const Parcel& parcel, std::unique_ptr<std::vector<T>>* out, Read read) {
  const size_t start = parcel.dataPosition();
  out->reset();
  int32_t count = 0;
  if (const status_t status = parcel.readInt32(&count); status != OK || count < 0) return status;
  parcel.setDataPosition(start);
  auto values = std::make_unique<std::vector<T>>();
  const status_t status = read(values.get());
  if (status == OK) *out = std::move(values);
  return status;
}

template <typename T>
status_t readPackedOrNull(const Parcel& parcel, std::unique_ptr<std::vector<T>>* out) {
  return readOrNull(parcel, out, [&parcel](std::vector<T>* values) { return readPacked(parcel, values); });
}

}  // namespace

status_t Parcel::writeByteArray(size_t len, const uint8_t* val) {
  if (val == nullptr) return writeInt32(kNull);
  if (len > static_cast<size_t>(INT32_MAX)) return BAD_VALUE;
  if (const status_t status = writeInt32(static_cast<int32_t>(len)); status != OK) return status;
  return write(val, len);
}

status_t Parcel::writeInt32Array(size_t len, const int32_t* val) {
  if (val == nullptr) return writeInt32(kNull);
  if (len > INT32_MAX / sizeof(int32_t)) return BAD_VALUE;
  if (const status_t status = writeInt32(static_cast<int32_t>(len)); status != OK) return status;
  return write(val, len * sizeof(int32_t));
}

status_t Parcel::writeByteVector(const std::vector<int8_t>& val) {
  return writePacked(this, val);
}

status_t Parcel::writeByteVector(const std::unique_ptr<std::vector<int8_t>>& val) {
  return writePackedOrNull(this, val);
}

status_t Parcel::writeByteVector(const std::vector<uint8_t>& val) {
  return writePacked(this, val);
}

status_t Parcel::writeByteVector(const std::unique_ptr<std::vector<uint8_t>>& val) {
  return writePackedOrNull(this, val);
}

status_t Parcel::writeInt32Vector(const std::vector<int32_t>& val) {
  return writePacked(this, val);
}

status_t Parcel::writeInt32Vector(const std::unique_ptr<std::vector<int32_t>>& val) {
  return writePackedOrNull(this, val);
}

status_t Parcel::writeInt64Vector(const std::vector<int64_t>& val) {
  return writePacked(this, val);
}

status_t Parcel::writeInt64Vector(const std::unique_ptr<std::vector<int64_t>>& val) {
  return writePackedOrNull(this, val);
}

status_t Parcel::writeUint64Vector(const std::vector<uint64_t>& val) {
  return writePacked(this, val);
}

status_t Parcel::writeUint64Vector(const std::unique_ptr<std::vector<uint64_t>>& val) {
  return writePackedOrNull(this, val);
}

status_t Parcel::writeFloatVector(const std::vector<float>& val) {
  return writePacked(this, val);
}

status_t Parcel::writeFloatVector(const std::unique_ptr<std::vector<float>>& val) {
  return writePackedOrNull(this, val);
}

status_t Parcel::writeDoubleVector(const std::vector<double>& val) {
  return writePacked(this, val);
}

status_t Parcel::writeDoubleVector(const std::unique_ptr<std::vector<double>>& val) {
  return writePackedOrNull(this, val);
}

status_t Parcel::writeBoolVector(const std::vector<bool>& val) {
  return writeEach(this, val, [this](bool value) { return writeBool(value); });
}

status_t Parcel::writeBoolVector(const std::unique_ptr<std::vector<bool>>& val) {
  return val ? writeBoolVector(*val) : writeInt32(kNull);
}

status_t Parcel::writeCharVector(const std::vector<char16_t>& val) {
  return writeEach(this, val, [this](char16_t value) { return writeChar(value); });
}

status_t Parcel::writeCharVector(const std::unique_ptr<std::vector<char16_t>>& val) {
  return val ? writeCharVector(*val) : writeInt32(kNull);
}

status_t Parcel::writeString16Vector(const std::vector<String16>& val) {
  return writeEach(this, val, [this](const String16& value) { return writeString16(value); });
}

status_t Parcel::writeString16Vector(const std::unique_ptr<std::vector<std::unique_ptr<String16>>>& val) {
  if (!val) return writeInt32(kNull);
  return writeEach(this, *val,
                   [this](const std::unique_ptr<String16>& value) { return writeString16(value); });
}

status_t Parcel::writeUtf8VectorAsUtf16Vector(const std::vector<std::string>& val) {
  return writeEach(this, val, [this](const std::string& value) { return writeUtf8AsUtf16(value); });
}

status_t Parcel::writeUtf8VectorAsUtf16Vector(
    const std::unique_ptr<std::vector<std::unique_ptr<std::string>>>& val) {
  if (!val) return writeInt32(kNull);
  return writeEach(this, *val,
                   [this](const std::unique_ptr<std::string>& value) { return writeUtf8AsUtf16(value); });
}

status_t Parcel::readByteVector(std::vector<int8_t>* val) const {
  return readPacked(*this, val);
}

status_t Parcel::readByteVector(std::unique_ptr<std::vector<int8_t>>* val) const {
  return readPackedOrNull(*this, val);
}

status_t Parcel::readByteVector(std::vector<uint8_t>* val) const {
  return readPacked(*this, val);
}

status_t Parcel::readByteVector(std::unique_ptr<std::vector<uint8_t>>* val) const {
  return readPackedOrNull(*this, val);
}

status_t Parcel::readInt32Vector(std::vector<int32_t>* val) const {
  return readPacked(*this, val);
}

status_t Parcel::readInt32Vector(std::unique_ptr<std::vector<int32_t>>* val) const {
  return readPackedOrNull(*this, val);
}

status_t Parcel::readInt64Vector(std::vector<int64_t>* val) const {
  return readPacked(*this, val);
}

status_t Parcel::readInt64Vector(std::unique_ptr<std::vector<int64_t>>* val) const {
  return readPackedOrNull(*this, val);
}

status_t Parcel::readUint64Vector(std::vector<uint64_t>* val) const {
  return readPacked(*this, val);
}

status_t Parcel::readUint64Vector(std::unique_ptr<std::vector<uint64_t>>* val) const {
  return readPackedOrNull(*this, val);
}

status_t Parcel::readFloatVector(std::vector<float>* val) const {
  return readPacked(*this, val);
}

status_t Parcel::readFloatVector(std::unique_ptr<std::vector<float>>* val) const {
  return readPackedOrNull(*this, val);
}

status_t Parcel::readDoubleVector(std::vector<double>* val) const {
  return readPacked(*this, val);
}

status_t Parcel::readDoubleVector(std::unique_ptr<std::vector<double>>* val) const {
  return readPackedOrNull(*this, val);
}

status_t Parcel::readBoolVector(std::vector<bool>* val) const {
  return readWords(*this, val);
}

status_t Parcel::readBoolVector(std::unique_ptr<std::vector<bool>>* val) const {
  return readOrNull(*this, val, [this](std::vector<bool>* values) { return readWords(*this, values); });
}

status_t Parcel::readCharVector(std::vector<char16_t>* val) const {
  return readWords(*this, val);
}

status_t Parcel::readCharVector(std::unique_ptr<std::vector<char16_t>>* val) const {
  return readOrNull(*this, val, [this](std::vector<char16_t>* values) { return readWords(*this, values); });
}

status_t Parcel::readString16Vector(std::vector<String16>* val) const {
  return readEach(*this, val, [this](String16* value) { return readString16(value); });
}

status_t Parcel::readString16Vector(std::unique_ptr<std::vector<std::unique_ptr<String16>>>* val) const {
  using Element = std::unique_ptr<String16>;
  return readOrNull(*this, val, [this](std::vector<Element>* values) {
    return readEach(*this, values, [this](Element* value) { return readString16(value); });
  });
}

status_t Parcel::readUtf8VectorFromUtf16Vector(std::vector<std::string>* val) const {
  return readEach(*this, val, [this](std::string* value) { return readUtf8FromUtf16(value); });
}

status_t Parcel::readUtf8VectorFromUtf16Vector(
    std::unique_ptr<std::vector<std::unique_ptr<std::string>>>* val) const {
  using Element = std::unique_ptr<std::string>;
  return readOrNull(*this, val, [this](std::vector<Element>* values) {
    return readEach(*this, values, [this](Element* value) { return readUtf8FromUtf16(value); });
  });
}

}  // namespace android
