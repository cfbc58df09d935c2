// Reports through this host's module, as the service makes them: opened by its bare name beside the program.
#include "telemetry/DiagnosticsCollectorTelemetry.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include "base/Json.h"
#include "support/LogCapture.h"
#include "support/TempDir.h"

namespace Torv::OS::Diagnostics::Telemetry {
namespace {

class TelemetryTest : public ::testing::Test {
 protected:
  // The log's last line behind its time, which comes first.
  std::string lastLine() const {
    const std::string log = test::readFile(mHost.path("telemetry.jsonl"));
    return log.substr(log.rfind("\"event\":"));
  }

  const test::HostDir mHost;
  DiagnosticsCollectorTelemetry mTelemetry{true};
};

TEST_F(TelemetryTest, fieldsComeInTheirOrderAndOnlyWhenGiven) {
  EXPECT_TRUE(mTelemetry.reportDefaultEventWithPid(EventName::GetForProcessStart, EventType::Start,
                                                   EventFlow::Collector, 1234));
  const std::string event = R"("event":"kerno_diagnostics_collector_events",)";
  EXPECT_EQ(lastLine(), event + R"("event_type":"start","client_app_id":0,"process_id":1234,)"
                                R"("event_flow":"collector_service_flow",)"
                                R"("client_event_name":"get_application_state_data_for_process_start"})"
                                "\n");
  EXPECT_TRUE(mTelemetry.reportEvent(EventName::NotifyError, EventType::Error, EventFlow::Notification, -2,
                                     std::numeric_limits<int>::min(), "a \"reason\"\n", ""));
  EXPECT_EQ(lastLine(), event + R"("error_reason":"a \"reason\"\n","error_trace":"","event_type":"error",)"
                                R"("client_app_id":-2147483648,"process_id":-2,)"
                                R"("event_flow":"notification_service_flow",)"
                                R"("client_event_name":"notify_system_event_error"})"
                                "\n");
}

TEST_F(TelemetryTest, valuesHaveTheirTextsAndOthersAreInvalid) {
  const auto texts = [this](int name, int type, int flow) {
    mTelemetry.reportDefaultEvent(static_cast<EventName>(name), static_cast<EventType>(type),
                                  static_cast<EventFlow>(flow));
    const auto event = Torv::Base::parseJson("{" + lastLine(), Torv::Base::JsonRules::Strict);
    return (*event)["client_event_name"].asString() + " " + (*event)["event_type"].asString() + " " +
           (*event)["event_flow"].asString();
  };
  EXPECT_EQ(texts(0, 0, 0), "diagnostics_collector_service_connect_start error collector_service_flow");
  EXPECT_EQ(texts(5, 1, 1), "get_all_available_application_state_data_error start notification_service_flow");
  EXPECT_EQ(texts(11, 2, 0), "notify_system_event_error success collector_service_flow");
  for (const int value : {12, -1}) {
    EXPECT_EQ(texts(value, value, value), "invalid_event_name invalid_type invalid_flow");
  }
  EXPECT_EQ(texts(12, 3, 2), "invalid_event_name invalid_type invalid_flow");
}

TEST_F(TelemetryTest, whatIsDisabledIsNotStoredAndWhatCannotBeStoredFails) {
  constexpr char kTag[] = "DiagnosticsCollectorService";
  const test::LogCapture log;
  const auto report = [](DiagnosticsCollectorTelemetry telemetry) {
    return telemetry.reportDefaultEvent(EventName::NotifyStart, EventType::Start, EventFlow::Notification);
  };
  EXPECT_FALSE(report(DiagnosticsCollectorTelemetry(false)));
  EXPECT_TRUE(log.has(ANDROID_LOG_INFO, kTag, "DiagnosticsCollectorTelemetry: telemetry disabled."));
  EXPECT_NE(access(mHost.path("telemetry.jsonl").c_str(), F_OK), 0);
  mHost.write("telemetry.jsonl/in-the-way", "");
  EXPECT_FALSE(report(DiagnosticsCollectorTelemetry(true)));
  EXPECT_TRUE(log.has(ANDROID_LOG_ERROR, kTag,
                      "DiagnosticsCollectorTelemetry: Failed to log diagnostics collector report event!"));
}

}  // namespace
}  // namespace Torv::OS::Diagnostics::Telemetry
