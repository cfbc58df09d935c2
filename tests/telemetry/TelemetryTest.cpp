// Reports through this host's module, as the service makes them: opened by its bare name beside the program.
#include "telemetry/DiagnosticsCollectorTelemetry.h"

#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "base/Json.h"
#include "support/LogCapture.h"
#include "support/TempDir.h"

namespace Torv::OS::Diagnostics::Telemetry {
namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;

class TelemetryTest : public ::testing::Test {
 protected:
  static bool report(DiagnosticsCollectorTelemetry& telemetry) {
    return telemetry.reportDefaultEvent(EventName::NotifyStart, EventType::Start, EventFlow::Notification);
  }
  std::vector<std::string> lines() const {
    std::vector<std::string> lines;
    std::istringstream log(test::readFile(mDir.path("telemetry.jsonl")));
    for (std::string line; std::getline(log, line);) lines.push_back(line);
    return lines;
  }

  test::TempDir mDir;
  test::ScopedEnv mRuntime{"TORV_RUNTIME_DIR", mDir.path()};
  DiagnosticsCollectorTelemetry mTelemetry{true};
};

TEST_F(TelemetryTest, fieldsComeInTheirOrderAndOnlyWhenGiven) {
  EXPECT_TRUE(mTelemetry.reportDefaultEventWithPid(EventName::GetForProcessStart, EventType::Start,
                                                   EventFlow::Collector, 1234));
  EXPECT_TRUE(mTelemetry.reportEvent(EventName::NotifyError, EventType::Error, EventFlow::Notification, -2,
                                     std::numeric_limits<int>::min(), "a \"reason\"\n", ""));
  EXPECT_TRUE(mTelemetry.reportDefaultErrorEvent(EventName::GetAllError, EventType::Error,
                                                 EventFlow::Collector, "why"));
  const std::string event = R"("event":"kerno_diagnostics_collector_events",)";
  EXPECT_THAT(
      lines(),
      ElementsAre(
          EndsWith(event + R"("event_type":"start","client_app_id":0,"process_id":1234,)"
                           R"("event_flow":"collector_service_flow",)"
                           R"("client_event_name":"get_application_state_data_for_process_start"})"),
          EndsWith(event + R"("error_reason":"a \"reason\"\n","error_trace":"","event_type":"error",)"
                           R"("client_app_id":-2147483648,"process_id":-2,)"
                           R"("event_flow":"notification_service_flow",)"
                           R"("client_event_name":"notify_system_event_error"})"),
          EndsWith(event + R"("error_reason":"why","event_type":"error","client_app_id":0,"process_id":0,)"
                           R"("event_flow":"collector_service_flow",)"
                           R"("client_event_name":"get_all_available_application_state_data_error"})")));
}

TEST_F(TelemetryTest, valuesHaveTheirTextsAndOthersAreInvalid) {
  const auto texts = [this](int name, int type, int flow) {
    mTelemetry.reportDefaultEvent(static_cast<EventName>(name), static_cast<EventType>(type),
                                  static_cast<EventFlow>(flow));
    const auto event = Torv::Base::parseJson(lines().back(), Torv::Base::JsonRules::Strict);
    return (*event)["client_event_name"].asString() + " " + (*event)["event_type"].asString() + " " +
           (*event)["event_flow"].asString();
  };
  EXPECT_EQ(texts(0, 0, 0), "diagnostics_collector_service_connect_start error collector_service_flow");
  EXPECT_EQ(texts(5, 1, 1), "get_all_available_application_state_data_error start notification_service_flow");
  EXPECT_EQ(texts(11, 2, 0), "notify_system_event_error success collector_service_flow");
  EXPECT_EQ(texts(12, 3, 2), "invalid_event_name invalid_type invalid_flow");
  EXPECT_EQ(texts(-1, -1, -1), "invalid_event_name invalid_type invalid_flow");
}

TEST_F(TelemetryTest, whatIsNotStoredIsReportedAsSuch) {
  const test::LogCapture log;
  DiagnosticsCollectorTelemetry disabled(false);
  EXPECT_FALSE(report(disabled));
  EXPECT_TRUE(log.has(ANDROID_LOG_INFO, "DiagnosticsCollectorService",
                      "DiagnosticsCollectorTelemetry: telemetry disabled."));
  EXPECT_NE(access(mDir.path("telemetry.jsonl").c_str(), F_OK), 0);
}

}  // namespace
}  // namespace Torv::OS::Diagnostics::Telemetry
