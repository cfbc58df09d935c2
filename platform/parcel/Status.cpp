// The exception that heads every reply.
//
// int32 code; for any but EX_NONE then String16 message, int32 size of a stack trace (here 0), and for
// EX_SERVICE_SPECIFIC an int32 error, for EX_PARCELABLE an int32 size of a blob (here 0).

#include "parcel/ParcelHeader.h"

#include <algorithm>

#include <binder/Status.h>

namespace android::binder {
namespace {

// Steps over a block headed by its size, which may count its own four bytes. Either way it must not be more
// than the bytes that follow it: that is the device's rule.
status_t skipSizedBlock(const Parcel& parcel, bool sizeCountsItself) {
  int32_t size = 0;
  if (const status_t status = parcel.readInt32(&size); status != OK) return status;
  if (size < 0 || static_cast<size_t>(size) > parcel.dataAvail()) return UNKNOWN_ERROR;
  const auto counted = sizeCountsItself ? std::min(static_cast<size_t>(size), sizeof(size)) : 0;
  parcel.setDataPosition(parcel.dataPosition() + static_cast<size_t>(size) - counted);
  return OK;
}

}  // namespace

Status::Status(int32_t exceptionCode, int32_t errorCode) : mException(exceptionCode), mErrorCode(errorCode) {}

Status::Status(int32_t exceptionCode, int32_t errorCode, const String8& message)
    : mException(exceptionCode), mErrorCode(errorCode), mMessage(message) {}

Status Status::ok() {
  return {};
}

Status Status::fromExceptionCode(int32_t exceptionCode) {
  return {exceptionCode, exceptionCode == EX_TRANSACTION_FAILED ? FAILED_TRANSACTION : OK};
}

Status Status::fromExceptionCode(int32_t exceptionCode, const String8& message) {
  return {exceptionCode, exceptionCode == EX_TRANSACTION_FAILED ? FAILED_TRANSACTION : OK, message};
}

Status Status::fromExceptionCode(int32_t exceptionCode, const char* message) {
  return fromExceptionCode(exceptionCode, String8(message));
}

Status Status::fromServiceSpecificError(int32_t serviceSpecificErrorCode) {
  return {EX_SERVICE_SPECIFIC, serviceSpecificErrorCode};
}

Status Status::fromServiceSpecificError(int32_t serviceSpecificErrorCode, const String8& message) {
  return {EX_SERVICE_SPECIFIC, serviceSpecificErrorCode, message};
}

Status Status::fromServiceSpecificError(int32_t serviceSpecificErrorCode, const char* message) {
  return fromServiceSpecificError(serviceSpecificErrorCode, String8(message));
}

Status Status::fromStatusT(status_t status) {
  Status result;
  result.setFromStatusT(status);
  return result;
}

std::string Status::exceptionToString(status_t exceptionCode) {
  switch (exceptionCode) {
    case EX_NONE:
      return "EX_NONE";
    case EX_SECURITY:
      return "EX_SECURITY";
    case EX_BAD_PARCELABLE:
      return "EX_BAD_PARCELABLE";
    case EX_ILLEGAL_ARGUMENT:
      return "EX_ILLEGAL_ARGUMENT";
    case EX_NULL_POINTER:
      return "EX_NULL_POINTER";
    case EX_ILLEGAL_STATE:
      return "EX_ILLEGAL_STATE";
    case EX_NETWORK_MAIN_THREAD:
      return "EX_NETWORK_MAIN_THREAD";
    case EX_UNSUPPORTED_OPERATION:
      return "EX_UNSUPPORTED_OPERATION";
    case EX_SERVICE_SPECIFIC:
      return "EX_SERVICE_SPECIFIC";
    case EX_PARCELABLE:
      return "EX_PARCELABLE";
    case EX_HAS_REPLY_HEADER:
      return "EX_HAS_REPLY_HEADER";
    case EX_TRANSACTION_FAILED:
      return "EX_TRANSACTION_FAILED";
    default:
      return std::to_string(exceptionCode);
  }
}

status_t Status::readFromParcel(const Parcel& parcel) {
  const auto readAll = [&]() -> status_t {
    if (const status_t status = parcel.readInt32(&mException); status != OK) return status;
    if (mException == EX_HAS_REPLY_HEADER) {
      mException = EX_NONE;
      return skipSizedBlock(parcel, /*sizeCountsItself=*/true);
    }
    if (mException == EX_NONE) return OK;
    String16 message;
    if (const status_t status = parcel.readString16(&message); status != OK) return status;
    mMessage = String8(message);
    if (const status_t status = skipSizedBlock(parcel, /*sizeCountsItself=*/false); status != OK)
      return status;
    if (mException == EX_SERVICE_SPECIFIC) return parcel.readInt32(&mErrorCode);
    if (mException == EX_PARCELABLE) return skipSizedBlock(parcel, /*sizeCountsItself=*/true);
    return OK;
  };
  *this = Status();
  const status_t status = readAll();
  if (status != OK) setFromStatusT(status);
  return status;
}

status_t Status::writeToParcel(Parcel* parcel) const {
  // What failed below the exceptions is reported as the result of the transaction instead.
  if (mException == EX_TRANSACTION_FAILED) return mErrorCode;
  status_t status = parcel->writeInt32(mException);
  if (mException == EX_NONE) return status;
  if (status == OK) status = parcel->writeString16(String16(mMessage));
  if (status == OK) status = parcel->writeInt32(0);
  if (status == OK && mException == EX_SERVICE_SPECIFIC) status = parcel->writeInt32(mErrorCode);
  if (status == OK && mException == EX_PARCELABLE) status = parcel->writeInt32(0);
  return status;
}

void Status::setException(int32_t ex, const String8& message) {
  *this = fromExceptionCode(ex, message);
}

void Status::setServiceSpecificError(int32_t errorCode, const String8& message) {
  *this = fromServiceSpecificError(errorCode, message);
}

void Status::setFromStatusT(status_t status) {
  mException = status == OK ? EX_NONE : EX_TRANSACTION_FAILED;
  mErrorCode = status;
  mMessage.clear();
}

String8 Status::toString8() const {
  if (isOk()) return String8("ok");
  String8 text = String8::format("exception %d (%s)", mException, exceptionToString(mException).c_str());
  if (mErrorCode != OK) text.appendFormat(", error %d", mErrorCode);
  if (!mMessage.isEmpty()) text.appendFormat(": %s", mMessage.string());
  return text;
}

std::stringstream& operator<<(std::stringstream& stream, const Status& s) {
  stream << s.toString8().string();
  return stream;
}

}  // namespace android::binder
