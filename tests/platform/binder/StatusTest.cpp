#include "Bytes.h"

#include <binder/Status.h>
#include <gtest/gtest.h>

namespace {

using android::Parcel;
using android::binder::Status;
using test::fill;
using test::hexOf;

std::string hexOfStatus(const Status& status) {
  return hexOf([&](Parcel& parcel) { EXPECT_EQ(status.writeToParcel(&parcel), android::OK); });
}

TEST(StatusBytes, EveryExceptionHasMessageAndEmptyStackTrace) {
  EXPECT_EQ(hexOfStatus(Status::ok()), "00000000");
  const std::vector<std::pair<int32_t, std::string>> codes = {{Status::EX_SECURITY, "ffffffff"},
                                                              {Status::EX_BAD_PARCELABLE, "feffffff"},
                                                              {Status::EX_ILLEGAL_ARGUMENT, "fdffffff"},
                                                              {Status::EX_NULL_POINTER, "fcffffff"},
                                                              {Status::EX_ILLEGAL_STATE, "fbffffff"},
                                                              {Status::EX_NETWORK_MAIN_THREAD, "faffffff"},
                                                              {Status::EX_UNSUPPORTED_OPERATION, "f9ffffff"}};
  for (const auto& [code, word] : codes) {
    EXPECT_EQ(hexOfStatus(Status::fromExceptionCode(code)), word + " 00000000 00000000 00000000");
    EXPECT_EQ(hexOfStatus(Status::fromExceptionCode(code, "x")), word + " 01000000 78000000 00000000");
  }
  EXPECT_EQ(hexOfStatus(Status::fromExceptionCode(Status::EX_NULL_POINTER, "hi")),
            "fcffffff 02000000 68006900 00000000 00000000");
  EXPECT_EQ(hexOfStatus(Status::fromServiceSpecificError(7)), "f8ffffff 00000000 00000000 00000000 07000000");
  EXPECT_EQ(hexOfStatus(Status::fromServiceSpecificError(7, "x")),
            "f8ffffff 01000000 78000000 00000000 07000000");
  EXPECT_EQ(hexOfStatus(Status::fromServiceSpecificError(0)), "f8ffffff 00000000 00000000 00000000 00000000");
  EXPECT_EQ(hexOfStatus(Status::fromExceptionCode(Status::EX_PARCELABLE)),
            "f7ffffff 00000000 00000000 00000000 00000000");
}

TEST(StatusBytes, AFailedTransactionIsAResultAndNoBytes) {
  Parcel parcel;
  EXPECT_EQ(Status::fromExceptionCode(Status::EX_TRANSACTION_FAILED).writeToParcel(&parcel),
            android::FAILED_TRANSACTION);
  EXPECT_EQ(Status::fromStatusT(android::DEAD_OBJECT).writeToParcel(&parcel), android::DEAD_OBJECT);
  EXPECT_EQ(parcel.dataSize(), 0u);
  EXPECT_TRUE(Status::fromStatusT(android::OK).isOk());
}

struct Reading {
  const char* text;
  android::status_t result;
  int32_t exception;
  int32_t next;  // the int32 that is read after it
};

TEST(StatusRead, FollowsTheLayoutAndLeavesThePositionBehindIt) {
  for (const Reading& reading : std::vector<Reading>{
           {"00000000 2a000000", android::OK, Status::EX_NONE, 42},
           // a header of Java's, whose size counts itself
           {"80ffffff 08000000 11111111 2a000000", android::OK, Status::EX_NONE, 42},
           {"fbffffff 01000000 78000000 00000000 2a000000", android::OK, Status::EX_ILLEGAL_STATE, 42},
           {"fbffffff 01000000 78000000 04000000 11111111 2a000000", android::OK, Status::EX_ILLEGAL_STATE,
            42},
           {"f8ffffff 01000000 78000000 00000000 07000000 2a000000", android::OK, Status::EX_SERVICE_SPECIFIC,
            42},
           {"f7ffffff 01000000 78000000 00000000 08000000 11111111 2a000000", android::OK,
            Status::EX_PARCELABLE, 42},
           {"c9ffffff 00000000 00000000 00000000 2a000000", android::OK, -55, 42},
       }) {
    Parcel parcel;
    fill(parcel, reading.text);
    Status status;
    EXPECT_EQ(status.readFromParcel(parcel), reading.result) << reading.text;
    EXPECT_EQ(status.exceptionCode(), reading.exception) << reading.text;
    EXPECT_EQ(parcel.readInt32(), reading.next) << reading.text;
  }
}

TEST(StatusRead, WhatIsCutOrHostileBecomesAFailedTransaction) {
  for (const auto& [text, expected] : std::vector<std::pair<const char*, android::status_t>>{
           {"", android::NOT_ENOUGH_DATA},
           {"80ffffff", android::NOT_ENOUGH_DATA},
           {"80ffffff ffffffff", android::UNKNOWN_ERROR},
           {"80ffffff 40000000 00000000", android::UNKNOWN_ERROR},
           {"fbffffff", android::UNEXPECTED_NULL},
           {"fbffffff ffffffff 00000000", android::UNEXPECTED_NULL},
           {"fbffffff 00000000 00000000", android::NOT_ENOUGH_DATA},
           {"fbffffff 00000000 00000000 ffffffff", android::UNKNOWN_ERROR},
           {"fbffffff 00000000 00000000 ffffff7f", android::UNKNOWN_ERROR},
           {"f8ffffff 00000000 00000000 00000000", android::NOT_ENOUGH_DATA},
           {"f7ffffff 00000000 00000000 00000000 ffffff7f", android::UNKNOWN_ERROR},
       }) {
    Parcel parcel;
    fill(parcel, text);
    Status status;
    EXPECT_EQ(status.readFromParcel(parcel), expected) << text;
    EXPECT_EQ(status.exceptionCode(), Status::EX_TRANSACTION_FAILED) << text;
    EXPECT_EQ(status.transactionError(), expected) << text;
  }
}

}  // namespace
