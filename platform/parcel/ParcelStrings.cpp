// Strings and parcelables of a parcel.
//
// String16: int32 length in UTF-16 units, the units, a NUL unit, zeros to the next multiple of 4. A null
// string is the length -1 alone. String8 is the same with bytes. Reading returns UNEXPECTED_NULL if the
// length is negative or reaches past the end, or if the NUL is missing: the device's library does not tell
// these apart.

#include "parcel/ParcelHeader.h"

#include <cstring>

#include <binder/Status.h>
#include <utils/String8.h>
#include <utils/Unicode.h>

namespace android {
namespace {

constexpr int32_t kNull = -1;
constexpr size_t kMaxUnits = INT32_MAX / sizeof(char16_t) - 1;

// Writes the length and leaves room for `units` and the NUL. Returns nullptr if there is no memory for them.
char16_t* beginString16(Parcel* parcel, size_t units) {
  if (parcel->writeInt32(static_cast<int32_t>(units)) != OK) return nullptr;
  return static_cast<char16_t*>(parcel->writeInplace((units + 1) * sizeof(char16_t)));
}

}  // namespace

status_t Parcel::writeString8(const String8& str) {
  if (const status_t status = writeInt32(static_cast<int32_t>(str.bytes())); status != OK) return status;
  return write(str.string(), str.bytes() + 1);
}

status_t Parcel::writeString16(const String16& str) {
  return writeString16(str.string(), str.size());
}

// `len` counts units. A null `str` gives a null string, whatever `len` is.
status_t Parcel::writeString16(const char16_t* str, size_t len) {
  if (str == nullptr) return writeInt32(kNull);
  if (len > kMaxUnits) return BAD_VALUE;
  char16_t* const target = beginString16(this, len);
  if (target == nullptr) return errorCheck();
  memcpy(target, str, len * sizeof(char16_t));
  target[len] = 0;
  return OK;
}

// Writes the bytes that writeString16() writes for the same text. Returns BAD_VALUE if `str` is not UTF-8, as
// far as the platform's converter notices that.
status_t Parcel::writeUtf8AsUtf16(const std::string& str) {
  const auto* const utf8 = reinterpret_cast<const uint8_t*>(str.data());
  const ssize_t units = utf8_to_utf16_length(utf8, str.size());
  if (units < 0 || static_cast<size_t>(units) > kMaxUnits) return BAD_VALUE;
  const auto length = static_cast<size_t>(units);
  char16_t* const target = beginString16(this, length);
  if (target == nullptr) return errorCheck();
  utf8_to_utf16(utf8, str.size(), target, length + 1);
  return OK;
}

// A parcelable is int32 1 and then what it writes itself.
status_t Parcel::writeParcelable(const Parcelable& parcelable) {
  if (const status_t status = writeInt32(1); status != OK) return status;
  return parcelable.writeToParcel(this);
}

status_t Parcel::readString8(String8* pArg) const {
  int32_t length = 0;
  if (readInt32(&length) != OK || length < 0 || length == INT32_MAX) return UNEXPECTED_NULL;
  const auto size = static_cast<size_t>(length);
  const auto* const text = static_cast<const char*>(readInplace(size + 1));
  if (text == nullptr || text[size] != '\0') return UNEXPECTED_NULL;
  return pArg->setTo(text, size);
}

// Returns an empty text if the string is null or not whole.
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

// Returns nullptr if the string is null or not whole.
const char16_t* Parcel::readString16Inplace(size_t* outLen) const {
  *outLen = 0;
  int32_t length = 0;
  if (readInt32(&length) != OK || length < 0) return nullptr;
  // A reply header whose size is no multiple of 4 can leave the position odd. A char16_t cannot lie there.
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
  // The converter also writes a NUL, so it needs room for one more byte.
  str->resize(static_cast<size_t>(bytes) + 1);
  if (bytes != 0) utf16_to_utf8(text, units, str->data(), str->size());
  str->resize(static_cast<size_t>(bytes));
  return OK;
}

// As in API 32, the marker must be exactly 1. Older libraries accept any number but 0.
status_t Parcel::readParcelable(Parcelable* parcelable) const {
  int32_t present = 0;
  if (const status_t status = readInt32(&present); status != OK) return status;
  return present == 1 ? parcelable->readFromParcel(this) : UNEXPECTED_NULL;
}

// Returns EX_TRANSACTION_FAILED if the status cannot be read.
int32_t Parcel::readExceptionCode() const {
  binder::Status status;
  status.readFromParcel(*this);
  return status.exceptionCode();
}

}  // namespace android
