#include "AgedValue.h"

#include <cerrno>

#include <gtest/gtest.h>
#include <json/json.h>

#include "support/LogCapture.h"

namespace Torv::OS::Diagnostics {
namespace {

constexpr int64_t kMs = 1'000'000;

TEST(AgedValue, IsCompactJsonOfAgeAndValueAndNothingForTheFuture) {
  EXPECT_EQ(agedValue({5 * kMs, "home"}, 12), R"({"dt_ms":7,"v":"home"})");
  EXPECT_EQ(agedValue({12 * kMs + 999'999, ""}, 12), R"({"dt_ms":0,"v":""})");
  EXPECT_EQ(agedValue({INT64_MIN, "a"}, 0), R"({"dt_ms":9223372036854,"v":"a"})");
  EXPECT_EQ(agedValue({13 * kMs, "a"}, 12), std::nullopt);
  EXPECT_EQ(agedValue({INT64_MAX, "a"}, 0), std::nullopt);
}

// The writer is kept, so nothing of one value may be left in it for the next.
TEST(AgedValue, WritesEveryStringAsTheLibraryDoes) {
  Json::StreamWriterBuilder settings;
  settings["indentation"] = "";
  std::string everyByte;
  for (int byte = 0; byte < 256; byte++) everyByte += static_cast<char>(byte);
  for (const std::string& value : {everyByte, std::string("cut \xe2\x82"), std::string("\xf0\x9f\x98\x80"),
                                   std::string("\xed\xa0\x80"), std::string(4096, '"')}) {
    Json::Value expected;
    expected["v"] = value;
    expected["dt_ms"] = Json::UInt64(3);
    EXPECT_EQ(agedValue({0, value}, 3), Json::writeString(settings, expected));
  }
}

TEST(BootTime, IsMillisecondsOrZeroAndLoggedWhereItCannotBeRead) {
  EXPECT_EQ(bootTimeMs([](clockid_t clock, timespec* time) {
              *time = {12, 345'999'999};
              return clock == CLOCK_BOOTTIME ? 0 : -1;
            }),
            12'345);
  test::LogCapture log;
  const auto failing = [](clockid_t, timespec*) {
    errno = EINVAL;
    return -1;
  };
  EXPECT_EQ(bootTimeMs(failing), 0);
  EXPECT_TRUE(log.has(ANDROID_LOG_ERROR, "libdiagnostics-storage", "error getting time: Invalid argument"));
}

}  // namespace
}  // namespace Torv::OS::Diagnostics
