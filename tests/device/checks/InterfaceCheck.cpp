// The two services as the service manager and a client built on the real libbinder see them.

#include "DeviceTest.h"

#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <signal.h>
#include <statsd/StatsEventWriter.h>
#include <utils/String8.h>

#include <mutex>

namespace {

using android::Parcel;
using android::sp;
using android::String16;
using android::String8;

// Hears from the service manager of each registration, as android.os.IServiceCallback.
class RegistrationListener : public android::BBinder {
 public:
  const String16& getInterfaceDescriptor() const override { return mDescriptor; }

  bool listenFor(const char* name) {
    constexpr uint32_t kRegisterForNotifications = 5;
    Parcel request, reply;
    request.writeInterfaceToken(String16("android.os.IServiceManager"));
    request.writeString16(String16(name));
    request.writeStrongBinder(this);
    const auto manager = android::ProcessState::self()->getContextObject(nullptr);
    return manager->transact(kRegisterForNotifications, request, &reply) == android::OK &&
           reply.readExceptionCode() == 0;
  }
  std::vector<std::string> names() {
    const std::lock_guard lock(mMutex);
    return mNames;
  }

 private:
  android::status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) override {
    if (code != FIRST_CALL_TRANSACTION) return BBinder::onTransact(code, data, reply, flags);
    if (!data.enforceInterface(mDescriptor)) return android::BAD_TYPE;
    const std::lock_guard lock(mMutex);
    mNames.emplace_back(String8(data.readString16()).string());
    return android::OK;
  }

  const String16 mDescriptor{"android.os.IServiceCallback"};
  std::mutex mMutex;
  std::vector<std::string> mNames;
};

// The first of all checks, because the service manager tells a new listener of services that are there.
TEST(RegistrationTest, bothServicesAreRegisteredInOrderAndListed) {
  const std::vector<std::string> expected = {"DiagnosticsCollectorService", "DiagnosticsNotificationService"};
  const sp<RegistrationListener> listener = new RegistrationListener;
  for (const std::string& name : expected) ASSERT_TRUE(listener->listenFor(name.c_str()));
  Daemon daemon;
  daemon.start();
  ASSERT_TRUE(fixture::eventually([&] { return listener->names().size() >= 2; }));
  EXPECT_EQ(listener->names(), expected);

  std::vector<std::string> listed;
  for (const String16& name : android::defaultServiceManager()->listServices()) {
    if (String8(name).contains("Diagnostics")) listed.emplace_back(String8(name).string());
  }
  EXPECT_EQ(listed, expected);
}

TEST_F(DeviceTest, systemContextJoinsContextAndGlobalStates) {
  fixture::actAs(fixture::serviceUid(), [] {
    libstatsd::StatsEventWriter writer;
    EXPECT_EQ(writer.publishTelemetrySession("S-1", "U-1"), libstatsd::WriteResult::Sent);
  });
  const Json::Value answer = Daemon::askContext();
  EXPECT_EQ(answer.getMemberNames(), (Json::Value::Members{"GlobalStateData", "SystemContextData"}));
  const Json::Value& context = answer["SystemContextData"];
  EXPECT_EQ(context["build_fingerprint"], "torv/device/emulated:12/1:userdebug/dev-keys");
  EXPECT_EQ(context["ci_session_context"], "{\"session\": \"device\"}");
  EXPECT_EQ(context.size(), 6u + 7u) << "and a history for each collector";

  const Json::Value& global = answer["GlobalStateData"]["telemetry"];
  EXPECT_EQ(global["GlobalNamespace"], "telemetry");
  const Json::Value& ids = global["GlobalStateData"];
  EXPECT_NE(ids["service_session_id"].asString().find("\"v\":\"S-1\""), std::string::npos);
  EXPECT_NE(ids["user_active_session_id"].asString().find("\"v\":\"U-1\""), std::string::npos);
}

// A two-way call would wait for the stopped service, and its sender would not end.
TEST_F(DeviceTest, eventsOfEveryUidReachAServiceThatIsStoppedThoughTheSenderIsGone) {
  daemon.pause();
  for (const uid_t uid : {uid_t{0}, fixture::serviceUid(), fixture::applicationUid()}) {
    for (const char* code : {"0", "1", "2", "-1"}) EXPECT_EQ(play(uid, {"notify", code})->wait(), 0);
  }
  daemon.process().signal(SIGCONT);
  EXPECT_TRUE(fixture::eventually([&] {
    const std::string told = test::readFile(daemon.runtime("telemetry.jsonl"));
    return fixture::countOf(told, "notify_system_event_success") == 6 &&
           fixture::countOf(told, "notify_system_event_error") == 6;
  })) << test::readFile(daemon.runtime("telemetry.jsonl"));
}

}  // namespace
