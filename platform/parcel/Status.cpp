// The status that every reply begins with: an exception code, or EX_NONE.
//
// Bytes: int32 code; unless that is EX_NONE then String16 message, int32 size of a stack trace (written as
// 0), for EX_SERVICE_SPECIFIC an int32 error, and for EX_PARCELABLE an int32 size of a blob (written as 0).

#include "parcel/ParcelHeader.h"

#include <algorithm>
#include <utility>

#include <binder/Status.h>

namespace android::binder {
namespace {

constexpr std::pair<int32_t, const char*> kExceptionNames[] = {
    {Status::EX_NONE, "EX_NONE"},
    {Status::EX_SECURITY, "EX_SECURITY"},
    {Status::EX_BAD_PARCELABLE, "EX_BAD_PARCELABLE"},
    {Status::EX_ILLEGAL_ARGUMENT, "EX_ILLEGAL_ARGUMENT"},
    {Status::EX_NULL_POINTER, "EX_NULL_POINTER"},
    {Status::EX_ILLEGAL_STATE, "EX_ILLEGAL_STATE"},
    {Status::EX_NETWORK_MAIN_THREAD, "EX_NETWORK_MAIN_THREAD"},
    {Status::EX_UNSUPPORTED_OPERATION, "EX_UNSUPPORTED_OPERATION"},
    {Status::EX_SERVICE_SPECIFIC, "EX_SERVICE_SPECIFIC"},
    {Status::EX_PARCELABLE, "EX_PARCELABLE"},
    {Status::EX_HAS_REPLY_HEADER, "EX_HAS_REPLY_HEADER"},
    {Status::EX_TRANSACTION_FAILED, "EX_TRANSACTION_FAILED"},
};

// Skips a block that begins with its size. Returns UNKNOWN_ERROR if the size is negative or exceeds the bytes
// after it. That is the device's rule also for sizes that count their own four bytes.
status_t skipSizedBlock(const Parcel& parcel, bool sizeCountsItself) {
  int32_t size = 0;
  if (const status_t status = parcel.readInt32(&size); status != OK) return status;
  if (size < 0 || static_cast<size_t>(size) > parcel.dataAvail()) return UNKNOWN_ERROR;
  const auto alreadyRead = sizeCountsItself ? std::min(static_cast<size_t>(size), sizeof(size)) : 0;
  parcel.setDataPosition(parcel.dataPosition() + static_cast<size_t>(size) - alreadyRead);
  return OK;
}

}  // namespace

Status::Status(int32_t exceptionCode, int32_t errorCode) : mException(exceptionCode), mErrorCode(errorCode) {}

Status::Status(int32_t exceptionCode, int32_t errorCode, const String8& message)
    : mException(exceptionCode), mErrorCode(errorCode), mMessage(message) {}

Status Status::ok() {
  return {};
}

// EX_TRANSACTION_FAILED stands for the status FAILED_TRANSACTION. Codes that this file does not know are
// kept.
Status Status::fromExceptionCode(int32_t exceptionCode) {
  return {exceptionCode, exceptionCode == EX_TRANSACTION_FAILED ? FAILED_TRANSACTION : OK};
}

Status Status::fromExceptionCode(int32_t exceptionCode, const char* message) {
  return {exceptionCode, exceptionCode == EX_TRANSACTION_FAILED ? FAILED_TRANSACTION : OK, String8(message)};
}

// An error even if the code is 0.
Status Status::fromServiceSpecificError(int32_t serviceSpecificErrorCode, const char* message) {
  return {EX_SERVICE_SPECIFIC, serviceSpecificErrorCode, String8(message)};
}

// OK gives a status without an exception.
Status Status::fromStatusT(status_t status) {
  Status result;
  result.setFromStatusT(status);
  return result;
}

std::string Status::exceptionToString(status_t exceptionCode) {
  for (const auto& [code, name] : kExceptionNames) {
    if (code == exceptionCode) return name;
  }
  return std::to_string(exceptionCode);
}

// Leaves the position behind the status. On an error this status becomes that failed transaction.
status_t Status::readFromParcel(const Parcel& parcel) {
  const auto readAll = [&]() -> status_t {
    if (const status_t status = parcel.readInt32(&mException); status != OK) return status;
    // Java puts a header before the values of a call that succeeded.
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

// The message is text, never null. A failed transaction has no reply, so for one this writes nothing and
// returns the failure, which becomes the result of the transaction.
status_t Status::writeToParcel(Parcel* parcel) const {
  if (mException == EX_TRANSACTION_FAILED) return mErrorCode;
  status_t status = parcel->writeInt32(mException);
  if (mException == EX_NONE) return status;
  if (status == OK) status = parcel->writeString16(String16(mMessage));
  if (status == OK) status = parcel->writeInt32(0);
  if (status == OK && mException == EX_SERVICE_SPECIFIC) status = parcel->writeInt32(mErrorCode);
  if (status == OK && mException == EX_PARCELABLE) status = parcel->writeInt32(0);
  return status;
}

void Status::setFromStatusT(status_t status) {
  mException = status == OK ? EX_NONE : EX_TRANSACTION_FAILED;
  mErrorCode = status;
  mMessage.clear();
}

// For logs: the exception by name, an error code unless it is 0, and the message.
String8 Status::toString8() const {
  if (isOk()) return String8("ok");
  String8 text = String8::format("exception %d (%s)", mException, exceptionToString(mException).c_str());
  if (mErrorCode != OK) text.appendFormat(", error %d", mErrorCode);
  if (!mMessage.isEmpty()) text.appendFormat(": %s", mMessage.string());
  return text;
}

}  // namespace android::binder
