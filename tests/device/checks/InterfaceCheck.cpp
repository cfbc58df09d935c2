// The two services as the service manager and a client built on the real libbinder see them.

#include <binder/IServiceManager.h>
#include <gtest/gtest.h>
#include <utils/String8.h>

#include <algorithm>
#include <fstream>

#include "Machine.h"
#include "Roles.h"
#include "recorded/Parcels.h"

namespace {

using android::IBinder;
using android::Parcel;
using android::sp;
using android::status_t;
using android::String16;
using android::String8;
using android::binder::Status;
using android::os::PersistableBundle;

PersistableBundle statesOf(pid_t pid) {
  PersistableBundle states;
  const Status status = Daemon::collector()->getApplicationStateDataForProcess(pid, String16("any"), &states);
  EXPECT_TRUE(status.isOk()) << status.toString8().string();
  return states;
}

status_t transactWith(const sp<IBinder>& binder, const char* token, uint32_t code) {
  Parcel request, reply;
  request.writeInterfaceToken(String16(token));
  return binder->transact(code, request, &reply);
}

TEST(Interface, BothServicesAreRegisteredInOrderAndListed) {
  const std::vector<std::string> expected = {"DiagnosticsCollectorService", "DiagnosticsNotificationService"};
  ASSERT_TRUE(fixture::eventually([] { return Machine::registrations().size() >= 2; }));
  EXPECT_EQ(Machine::registrations(), expected);

  std::vector<std::string> listed;
  for (const String16& name : android::defaultServiceManager()->listServices()) {
    if (String8(name).contains("Diagnostics")) listed.emplace_back(String8(name).string());
  }
  EXPECT_EQ(listed, expected);
}

TEST(Interface, RealLibraryPacksWhatIsRecorded) {
  std::ifstream recorded("/parcels.txt");
  for (const auto& [name, hex] : packParcels()) {
    std::string line;
    ASSERT_TRUE(std::getline(recorded, line)) << "not recorded: " << name;
    EXPECT_EQ(line, (name + " ").append(hex));
  }
}

TEST(Interface, OneProcessIsTheNewestValueOfEachOfItsStates) {
  Child application(kApplication, {"publish", "screen", "home", "screen", "settings", "empty", "", "wide",
                                   "\u00e9\u65e5\U0001f680"});
  ASSERT_TRUE(application.ready());
  EXPECT_EQ(flatten(statesOf(application.pid())),
            (Flat{{"processId", "int " + std::to_string(application.pid())},
                  {"ApplicationStateData/screen", "settings"},
                  {"ApplicationStateData/empty", ""},
                  {"ApplicationStateData/wide", "\u00e9\u65e5\U0001f680"}}));
}

TEST(Interface, AnUnknownProcessIsAnEmptyBundle) {
  EXPECT_TRUE(statesOf(4000000).empty());
}

TEST(Interface, AllProcessesStandUnderTheirPids) {
  Child application(kApplication, {"publish", "who", "application"});
  Child system(kSystem, {"publish", "who", "system"});
  ASSERT_TRUE(application.ready() && system.ready());
  PersistableBundle all;
  ASSERT_TRUE(Daemon::collector()->getAllAvailableApplicationStateData(&all).isOk());
  EXPECT_EQ(all.size(), all.getPersistableBundleKeys().size());
  for (const auto& [pid, who] : {std::pair(application.pid(), "application"), {system.pid(), "system"}}) {
    const std::string key = std::to_string(pid);
    EXPECT_EQ(below(flatten(all), key + "/"),
              (Flat{{"processId", "int " + key}, {"ApplicationStateData/who", who}}));
  }
}

TEST(Interface, SystemContextJoinsContextAndGlobalStates) {
  ASSERT_EQ(Child(kSystem, {"session", "S-1", "U-1"}).wait(), 0);
  PersistableBundle bundle;
  ASSERT_TRUE(Daemon::collector()->getSystemContextData(&bundle).isOk());
  const Flat flat = flatten(bundle);

  const Flat context = below(flat, "SystemContextData/");
  const Flat expected = {
      {"build_tags", "dev-keys,quillet_diff_number:D1,quillet_version_number:7,pebblor_id:1"},
      {"build_fingerprint", "torv/device/emulated:12/1:userdebug/dev-keys"},
      {"quillet_diff_number", "D1"},
      {"quillet_diff_version", "7"},
      {"pebblor_id", "1"},
      {"ci_session_context", "{\"session\": \"device\"}"},
  };
  EXPECT_TRUE(std::includes(context.begin(), context.end(), expected.begin(), expected.end()));
  EXPECT_EQ(context.size(), expected.size() + 7) << "one history for each collector";

  Flat globals = below(flat, "GlobalStateData/telemetry/");
  EXPECT_EQ(globals["GlobalNamespace"], "telemetry");
  EXPECT_NE(globals["GlobalStateData/service_session_id"].find("\"v\":\"S-1\""), std::string::npos);
  EXPECT_NE(globals["GlobalStateData/user_active_session_id"].find("\"v\":\"U-1\""), std::string::npos);
  EXPECT_EQ(below(flat, "GlobalStateData/").size() + context.size(), flat.size());
}

TEST(Interface, ForeignAndUnknownTransactionsAreRefusedAsBinderDoes) {
  const char* const descriptors[] = {"dev.kerno.internal.diagnostics.IDiagnosticsCollectorService",
                                     "dev.kerno.internal.diagnostics.IDiagnosticsNotificationService"};
  const sp<IBinder> binders[] = {Daemon::binder(IDiagnosticsCollectorService::kServiceName),
                                 Daemon::binder(IDiagnosticsNotificationService::kServiceName)};
  for (size_t i = 0; i < 2; ++i) {
    EXPECT_EQ(binders[i]->pingBinder(), android::OK);
    EXPECT_STREQ(String8(binders[i]->getInterfaceDescriptor()).string(), descriptors[i]);
    EXPECT_EQ(transactWith(binders[i], descriptors[1 - i], 1), android::BAD_TYPE);
    for (const uint32_t code : {0u, 4u, 0x00ffffffu}) {
      EXPECT_EQ(transactWith(binders[i], descriptors[i], code), android::UNKNOWN_TRANSACTION) << code;
    }
  }
}

TEST(Interface, AMissingArgumentIsToldAsItsKindIs) {
  Parcel noPid, reply;
  noPid.writeInterfaceToken(IDiagnosticsCollectorService::descriptor);
  EXPECT_EQ(Daemon::binder(IDiagnosticsCollectorService::kServiceName)->transact(1, noPid, &reply),
            android::NOT_ENOUGH_DATA);

  Parcel noName;
  noName.writeInterfaceToken(IDiagnosticsCollectorService::descriptor);
  noName.writeInt32(1);
  reply.freeData();
  ASSERT_EQ(Daemon::binder(IDiagnosticsCollectorService::kServiceName)->transact(1, noName, &reply),
            android::OK);
  EXPECT_EQ(reply.readExceptionCode(), Status::EX_NULL_POINTER);
}

TEST(Notification, ReturnsBeforeASlowObserverHasFinished) {
  Child service(kSystem, {"slow"});
  ASSERT_TRUE(service.ready());
  const auto slow = android::interface_cast<IDiagnosticsNotificationService>(
      android::defaultServiceManager()->checkService(String16(kSlowService)));
  // The observer waits for release(), so a call that waited for it would never come back.
  ASSERT_TRUE(slow->notifySystemEvent(IDiagnosticsNotificationEventCode::APPLICATION_CRASHED, {}).isOk());
  service.release();
  EXPECT_TRUE(service.ready());
}

TEST(Notification, ReachesTheDaemonFromEveryUidEvenIfTheSenderIsGone) {
  const auto told = [](const char* event) { return countOf(test::readFile(kTelemetryLog), event); };
  const size_t taken = told("notify_system_event_success");
  const size_t refused = told("notify_system_event_error");
  for (const uid_t uid : {kRoot, kSystem, kApplication}) {
    for (const char* code : {"0", "1", "2", "-1"}) EXPECT_EQ(Child(uid, {"notify", code}).wait(), 0);
  }
  EXPECT_TRUE(fixture::eventually([&] {
    return told("notify_system_event_success") == taken + 6 &&
           told("notify_system_event_error") == refused + 6;
  })) << told("notify_system_event_success") - taken
      << " taken, " << told("notify_system_event_error") - refused << " refused";
}

}  // namespace
