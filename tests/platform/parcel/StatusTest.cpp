#include "Bytes.h"

#include <binder/Status.h>
#include <gtest/gtest.h>

namespace {

using android::binder::Status;

TEST(StatusTest, readingLeavesThePositionBehindTheStatus) {
  for (const auto& [text, exception] : std::vector<std::pair<std::string, int32_t>>{
           {"00000000", Status::EX_NONE},
           // a header of Java's, whose size counts itself
           {"80ffffff 08000000 11111111", Status::EX_NONE},
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

TEST(StatusTest, cutOrHostileBytesBecomeAFailedTransaction) {
  for (const auto& [text, expected] : std::vector<std::pair<const char*, android::status_t>>{
           {"", android::NOT_ENOUGH_DATA},
           {"80ffffff ffffffff", android::UNKNOWN_ERROR},
           {"80ffffff 40000000 00000000", android::UNKNOWN_ERROR},
           {"fbffffff ffffffff 00000000", android::UNEXPECTED_NULL},
           {"fbffffff 00000000 00000000", android::NOT_ENOUGH_DATA},
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
