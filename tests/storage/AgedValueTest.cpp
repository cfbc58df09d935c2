#include "AgedValue.h"

#include <cerrno>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json/json.h>

#include "support/LogCapture.h"

namespace Torv::OS::Diagnostics {
namespace {

constexpr int64_t kMs = 1'000'000;

TEST(AgedValue, IsCompactJsonOfAgeAndValue) {
  EXPECT_EQ(agedValue({5 * kMs, "home"}, 12), R"({"dt_ms":7,"v":"home"})");
  EXPECT_EQ(agedValue({5 * kMs + 999'999, ""}, 5), R"({"dt_ms":0,"v":""})");
  EXPECT_EQ(agedValue({-5 * kMs - 1, "a"}, 0), R"({"dt_ms":5,"v":"a"})");
  EXPECT_EQ(agedValue({INT64_MIN, "a"}, 0), R"({"dt_ms":9223372036854,"v":"a"})");
  EXPECT_EQ(agedValue({0, "q\" b\\ n\n \x7f \xc3\xa9"}, 1),
            "{\"dt_ms\":1,\"v\":\"q\\\" b\\\\ n\\n \x7f \\u00e9\"}");
}

TEST(AgedValue, IsNothingForTheFuture) {
  EXPECT_EQ(agedValue({13 * kMs, "a"}, 12), std::nullopt);
  EXPECT_EQ(agedValue({INT64_MAX, "a"}, 0), std::nullopt);
  EXPECT_NE(agedValue({12 * kMs + 999'999, "a"}, 12), std::nullopt);
}

// The settings are read once a thread, so nothing of one value may be left in the writer for the next.
TEST(AgedValue, WritesEveryStringAsTheLibraryDoes) {
  Json::StreamWriterBuilder settings;
  settings["indentation"] = "";
  std::string everyByte;
  for (int byte = 0; byte < 256; byte++) everyByte += static_cast<char>(byte);
  const std::string values[] = {everyByte,  "\xff",         "cut \xe2\x82",         "\xf0\x9f\x98\x80",
                                "\xc0\x80", "\xed\xa0\x80", std::string("a\0b", 3), std::string(4096, '"')};
  for (const std::string& value : values) {
    Json::Value expected;
    expected["v"] = value;
    expected["dt_ms"] = Json::UInt64(3);
    EXPECT_EQ(agedValue({0, value}, 3), Json::writeString(settings, expected));
  }
}

TEST(BootTime, IsWholeMilliseconds) {
  EXPECT_EQ(bootTimeMs([](clockid_t clock, timespec* time) {
              *time = {12, 345'999'999};
              return clock == CLOCK_BOOTTIME ? 0 : -1;
            }),
            12'345);
}

TEST(BootTime, IsZeroAndLoggedWhenItCannotBeRead) {
  test::LogCapture log;
  EXPECT_EQ(bootTimeMs([](clockid_t, timespec*) {
              errno = EINVAL;
              return -1;
            }),
            0);
  EXPECT_TRUE(log.has(ANDROID_LOG_ERROR, "libdiagnostics-storage", "error getting time: Invalid argument"));
}

}  // namespace
}  // namespace Torv::OS::Diagnostics
