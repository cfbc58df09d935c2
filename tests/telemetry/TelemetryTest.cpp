// Reports through this host's module, as the service makes them: opened by its bare name beside the program.
#include "telemetry/DiagnosticsCollectorTelemetry.h"

#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "os/Json.h"
#include "support/LogCapture.h"
#include "support/TempDir.h"

namespace Torv::OS::Diagnostics::Telemetry {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

class TelemetryTest : public ::testing::Test {
 protected:
  std::vector<std::string> lines() const {
    std::vector<std::string> lines;
    std::istringstream log(test::readFile(mDir.path("telemetry.jsonl")));
    for (std::string line; std::getline(log, line);) lines.push_back(line);
    return lines;
  }

  std::string lastField(const std::string& name) const {
    std::string error;
    const auto event = Torv::OS::parseJson(lines().back(), error, Torv::OS::JsonRules::Strict);
    return event && event->isMember(name) ? (*event)[name].asString() : "(absent)";
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
  EXPECT_THAT(
      lines(),
      ElementsAre(
          HasSubstr(R"("event":"kerno_diagnostics_collector_events","event_type":"start",)"
                    R"("client_app_id":0,"process_id":1234,"event_flow":"collector_service_flow",)"
                    R"("client_event_name":"get_application_state_data_for_process_start"})"),
          HasSubstr(
              R"("event":"kerno_diagnostics_collector_events","error_reason":"a \"reason\"\n",)"
              R"("error_trace":"","event_type":"error","client_app_id":-2147483648,"process_id":-2,)"
              R"("event_flow":"notification_service_flow","client_event_name":"notify_system_event_error"})")));
}

TEST_F(TelemetryTest, anErrorCarriesItsMessageAndNothingElse) {
  EXPECT_TRUE(mTelemetry.reportDefaultErrorEvent(EventName::GetAllError, EventType::Error,
                                                 EventFlow::Collector, "why"));
  EXPECT_EQ(lastField("error_reason"), "why");
  EXPECT_EQ(lastField("error_trace"), "(absent)");
  EXPECT_EQ(lastField("process_id"), "0");
}

TEST_F(TelemetryTest, valuesHaveTheirTextsAndOthersAreInvalid) {
  const auto texts = [this](int name, int type, int flow) {
    mTelemetry.reportDefaultEvent(static_cast<EventName>(name), static_cast<EventType>(type),
                                  static_cast<EventFlow>(flow));
    return lastField("client_event_name") + " " + lastField("event_type") + " " + lastField("event_flow");
  };
  EXPECT_EQ(texts(0, 0, 0), "diagnostics_collector_service_connect_start error collector_service_flow");
  EXPECT_EQ(texts(5, 1, 1), "get_all_available_application_state_data_error start notification_service_flow");
  EXPECT_EQ(texts(11, 2, 0), "notify_system_event_error success collector_service_flow");
  EXPECT_EQ(texts(12, 3, 2), "invalid_event_name invalid_type invalid_flow");
  EXPECT_EQ(texts(-1, -1, -1), "invalid_event_name invalid_type invalid_flow");
}

TEST_F(TelemetryTest, concurrentReportsAreWholeLines) {
  constexpr int kThreads = 4;
  constexpr int kReports = 250;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([this, thread] {
      for (int report = 0; report < kReports; ++report) {
        EXPECT_TRUE(mTelemetry.reportDefaultEventWithPid(EventName::GetForProcessStart, EventType::Start,
                                                         EventFlow::Collector, thread * kReports + report));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  std::vector<bool> seen(kThreads * kReports);
  for (const std::string& line : lines()) {
    std::string error;
    const auto event = Torv::OS::parseJson(line, error, Torv::OS::JsonRules::Strict);
    ASSERT_TRUE(event) << line;
    seen.at((*event)["process_id"].asUInt()) = true;
  }
  EXPECT_THAT(seen, ::testing::Each(true));
}

TEST_F(TelemetryTest, anEventThatCannotBeStoredIsReportedAsSuch) {
  const test::ScopedEnv nowhere("TORV_RUNTIME_DIR", mDir.path("missing"));
  const test::LogCapture log;
  EXPECT_FALSE(
      mTelemetry.reportDefaultEvent(EventName::NotifyStart, EventType::Start, EventFlow::Notification));
  EXPECT_FALSE(
      mTelemetry.reportDefaultEvent(EventName::NotifyStart, EventType::Start, EventFlow::Notification));
  constexpr char kFailed[] =
      "DiagnosticsCollectorTelemetry: Failed to log diagnostics collector report event!";
  EXPECT_TRUE(log.has(ANDROID_LOG_ERROR, "DiagnosticsCollectorService", kFailed));
  EXPECT_EQ(log.count(kFailed), 2u);
  EXPECT_EQ(log.texts(ANDROID_LOG_ERROR).size(), 3u) << "why is said once";
}

TEST_F(TelemetryTest, disabledTelemetrySendsNothing) {
  DiagnosticsCollectorTelemetry disabled(false);
  const test::LogCapture log;
  EXPECT_FALSE(
      disabled.reportDefaultEvent(EventName::NotifyStart, EventType::Start, EventFlow::Notification));
  EXPECT_TRUE(log.has(ANDROID_LOG_INFO, "DiagnosticsCollectorService",
                      "DiagnosticsCollectorTelemetry: telemetry disabled."));
  EXPECT_NE(access(mDir.path("telemetry.jsonl").c_str(), F_OK), 0);
}

}  // namespace
}  // namespace Torv::OS::Diagnostics::Telemetry
