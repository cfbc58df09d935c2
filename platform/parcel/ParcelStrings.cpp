// Strings and parcelables of a parcel.
//
// String16: int32 length in UTF-16 units, the units, a NUL unit, zeros to the next multiple of 4; null is the
// length -1 alone. String8 is the same with bytes. A length that is negative or reaches past the end and a
// missing NUL all read as UNEXPECTED_NULL.

#include "parcel/ParcelHeader.h"

#include <cstring>

#include <binder/Status.h>
#include <utils/String8.h>
#include <utils/Unicode.h>

namespace android {
namespace {

constexpr int32_t kNull = -1;

// Where a nullable value is null, steps over its marker and leaves `out` empty; else calls `read`, which
// finds the position at the start of the value.
template <typename T, typename Read>
status_t readNullable(const Parcel& parcel, std::unique_ptr<T>* out, Read read) {
  const size_t start = parcel.dataPosition();
  out->reset();
  int32_t length = 0;
  if (const status_t status = parcel.readInt32(&length); status != OK || length < 0) return status;
  parcel.setDataPosition(start);
  auto value = std::make_unique<T>();
  const status_t status = read(value.get());
  if (status == OK) *out = std::move(value);
  return status;
}

}  // namespace

status_t Parcel::writeCString(const char* str) {
  return write(str, strlen(str) + 1);
}

status_t Parcel::writeString8(const String8& str) {
  if (const status_t status = writeInt32(static_cast<int32_t>(str.bytes())); status != OK) return status;
  return write(str.string(), str.bytes() + 1);
}

status_t Parcel::writeString16(const String16& str) {
  return writeString16(str.string(), str.size());
}

status_t Parcel::writeString16(const std::unique_ptr<String16>& str) {
  return str ? writeString16(*str) : writeInt32(kNull);
}

status_t Parcel::writeString16(const char16_t* str, size_t len) {
  if (str == nullptr) return writeInt32(kNull);
  if (len >= INT32_MAX / sizeof(char16_t)) return BAD_VALUE;
  if (const status_t status = writeInt32(static_cast<int32_t>(len)); status != OK) return status;
  auto* const target = static_cast<char16_t*>(writeInplace((len + 1) * sizeof(char16_t)));
  if (target == nullptr) return errorCheck();
  memcpy(target, str, len * sizeof(char16_t));
  target[len] = 0;
  return OK;
}

status_t Parcel::writeUtf8AsUtf16(const std::string& str) {
  const auto* const utf8 = reinterpret_cast<const uint8_t*>(str.data());
  const ssize_t units = utf8_to_utf16_length(utf8, str.size());
  if (units < 0 || units >= static_cast<ssize_t>(INT32_MAX / sizeof(char16_t))) return BAD_VALUE;
  const auto length = static_cast<size_t>(units);
  if (const status_t status = writeInt32(static_cast<int32_t>(length)); status != OK) return status;
  auto* const target = static_cast<char16_t*>(writeInplace((length + 1) * sizeof(char16_t)));
  if (target == nullptr) return errorCheck();
  utf8_to_utf16(utf8, str.size(), target, length + 1);
  return OK;
}

status_t Parcel::writeUtf8AsUtf16(const std::unique_ptr<std::string>& str) {
  return str ? writeUtf8AsUtf16(*str) : writeInt32(kNull);
}

status_t Parcel::writeParcelable(const Parcelable& parcelable) {
  if (const status_t status = writeInt32(1); status != OK) return status;
  return parcelable.writeToParcel(this);
}

status_t Parcel::writeRawNullableParcelable(const Parcelable* parcelable) {
  return parcelable != nullptr ? writeParcelable(*parcelable) : writeInt32(0);
}

const char* Parcel::readCString() const {
  const size_t avail = dataAvail();
  if (avail == 0) return nullptr;
  const void* const end = memchr(data() + dataPosition(), 0, avail);
  if (end == nullptr) return nullptr;
  const auto length = static_cast<size_t>(static_cast<const uint8_t*>(end) - (data() + dataPosition()));
  return static_cast<const char*>(readInplace(length + 1));
}

String8 Parcel::readString8() const {
  String8 value;
  readString8(&value);
  return value;
}

status_t Parcel::readString8(String8* pArg) const {
  int32_t length = 0;
  if (readInt32(&length) != OK || length < 0 || length == INT32_MAX) return UNEXPECTED_NULL;
  const auto size = static_cast<size_t>(length);
  const auto* const text = static_cast<const char*>(readInplace(size + 1));
  if (text == nullptr || text[size] != '\0') return UNEXPECTED_NULL;
  return pArg->setTo(text, size);
}

String16 Parcel::readString16() const {
  String16 value;
  readString16(&value);
  return value;
}

status_t Parcel::readString16(String16* pArg) const {
  size_t length = 0;
  const char16_t* const text = readString16Inplace(&length);
  if (text == nullptr) return UNEXPECTED_NULL;
  return pArg->setTo(text, length);
}

status_t Parcel::readString16(std::unique_ptr<String16>* pArg) const {
  return readNullable(*this, pArg, [this](String16* value) { return readString16(value); });
}

const char16_t* Parcel::readString16Inplace(size_t* outLen) const {
  *outLen = 0;
  int32_t length = 0;
  if (readInt32(&length) != OK || length < 0) return nullptr;
  // A header whose size is no multiple of 4 can leave the position anywhere; it is not one to point into.
  if (dataPosition() % alignof(char16_t) != 0) return nullptr;
  const auto units = static_cast<size_t>(length);
  const auto* const text = static_cast<const char16_t*>(readInplace((units + 1) * sizeof(char16_t)));
  if (text == nullptr || text[units] != 0) return nullptr;
  *outLen = units;
  return text;
}

status_t Parcel::readUtf8FromUtf16(std::string* str) const {
  size_t units = 0;
  const char16_t* const text = readString16Inplace(&units);
  if (text == nullptr) return UNEXPECTED_NULL;
  const ssize_t bytes = units == 0 ? 0 : utf16_to_utf8_length(text, units);
  if (bytes < 0) return BAD_VALUE;
  // The converter ends its output with a NUL of its own.
  str->resize(static_cast<size_t>(bytes) + 1);
  if (bytes != 0) utf16_to_utf8(text, units, str->data(), str->size());
  str->resize(static_cast<size_t>(bytes));
  return OK;
}

status_t Parcel::readUtf8FromUtf16(std::unique_ptr<std::string>* str) const {
  return readNullable(*this, str, [this](std::string* value) { return readUtf8FromUtf16(value); });
}

status_t Parcel::readParcelable(Parcelable* parcelable) const {
  int32_t present = 0;
  if (const status_t status = readInt32(&present); status != OK) return status;
  return present == 1 ? parcelable->readFromParcel(this) : UNEXPECTED_NULL;
}

int32_t Parcel::readExceptionCode() const {
  binder::Status status;
  status.readFromParcel(*this);
  return status.exceptionCode();
}

}  // namespace android
