#include "Bytes.h"

#include <binder/Status.h>
#include <gtest/gtest.h>

namespace {

using android::Parcel;
using android::binder::Status;

std::string hexOf(const Status& status) {
  return test::hexOf([&](Parcel& parcel) { EXPECT_EQ(status.writeToParcel(&parcel), android::OK); });
}

TEST(StatusBytes, EveryExceptionHasMessageAndEmptyStackTrace) {
  EXPECT_EQ(hexOf(Status::ok()), "00000000");
  int32_t code = Status::EX_NONE;  // EX_SECURITY and so on, down to EX_UNSUPPORTED_OPERATION
  for (const std::string word :
       {"ffffffff", "feffffff", "fdffffff", "fcffffff", "fbffffff", "faffffff", "f9ffffff"}) {
    EXPECT_EQ(hexOf(Status::fromExceptionCode(--code)), word + " 00000000 00000000 00000000");
    EXPECT_EQ(hexOf(Status::fromExceptionCode(code, "x")), word + " 01000000 78000000 00000000");
  }
  EXPECT_EQ(hexOf(Status::fromServiceSpecificError(7, "x")), "f8ffffff 01000000 78000000 00000000 07000000");
  EXPECT_EQ(hexOf(Status::fromServiceSpecificError(0)), "f8ffffff 00000000 00000000 00000000 00000000");
  EXPECT_EQ(hexOf(Status::fromExceptionCode(Status::EX_PARCELABLE)),
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

TEST(StatusRead, FollowsTheLayoutAndLeavesThePositionBehindIt) {
  for (const auto& [text, exception] : std::vector<std::pair<std::string, int32_t>>{
           {"00000000", Status::EX_NONE},
           // a header of Java's, whose size counts itself
           {"80ffffff 08000000 11111111", Status::EX_NONE},
           {"fbffffff 01000000 78000000 00000000", Status::EX_ILLEGAL_STATE},
           {"fbffffff 01000000 78000000 04000000 11111111", Status::EX_ILLEGAL_STATE},
           {"f8ffffff 01000000 78000000 00000000 07000000", Status::EX_SERVICE_SPECIFIC},
           {"f7ffffff 01000000 78000000 00000000 08000000 11111111", Status::EX_PARCELABLE},
           {"c9ffffff 00000000 00000000 00000000", -55},
       }) {
    const test::Filled parcel(text + " 2a000000");
    Status status;
    EXPECT_EQ(status.readFromParcel(parcel), android::OK) << text;
    EXPECT_EQ(status.exceptionCode(), exception) << text;
    EXPECT_EQ(parcel.readInt32(), 42) << text;
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
    const test::Filled parcel(text);
    Status status;
    EXPECT_EQ(status.readFromParcel(parcel), expected) << text;
    EXPECT_EQ(status.exceptionCode(), Status::EX_TRANSACTION_FAILED) << text;
    EXPECT_EQ(status.transactionError(), expected) << text;
  }
}

}  // namespace
