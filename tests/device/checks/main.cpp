// The checks that run inside the emulated machine, as its first root process after the service manager. With
// `record` as the argument it also prints the parcels that this libbinder packs. Any other argument is a
// role:
//   notify CODE    sends a system event and exits at once
//   query PID      asks for everything ten times; the process must have the state who = everyone's
//   stuck          prints "ready", then asks for all states
//   echo BYTES     offers the service "Echo", which answers anything with so many bytes

#include "DeviceTest.h"

#include <cstring>

#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>

#include "recorded/Parcels.h"

namespace {

using dev::kerno::internal::diagnostics::IDiagnosticsNotificationEventCode;

bool notify(int code) {
  return Daemon::notifier()->notifySystemEvent(IDiagnosticsNotificationEventCode{code}, {}).isOk();
}

bool query(int pid) {
  bool right = true;
  for (int i = 0; i < 10; ++i) {
    const Json::Value one = Daemon::askProcess(pid);
    right = right && one["ApplicationStateData"]["who"] == "everyone's" &&
            Daemon::askAll()[std::to_string(pid)] == one &&
            Daemon::askContext()["SystemContextData"].isMember("psi_cpu_history");
  }
  return right;
}

bool stuck(int) {
  const auto service = Daemon::collector();
  std::puts("ready");
  android::os::PersistableBundle all;
  return service->getAllAvailableApplicationStateData(&all).isOk();
}

class Echo : public android::BBinder {
 public:
  explicit Echo(size_t bytes) : mAnswer(bytes, 'x') {}

 private:
  android::status_t onTransact(uint32_t code, const android::Parcel& data, android::Parcel* reply,
                               uint32_t flags) override {
    if (code != FIRST_CALL_TRANSACTION) return BBinder::onTransact(code, data, reply, flags);
    return reply->write(mAnswer.data(), mAnswer.size());
  }

  const std::string mAnswer;
};

bool echo(int bytes) {
  android::defaultServiceManager()->addService(android::String16("Echo"), new Echo(bytes));
  android::ProcessState::self()->startThreadPool();
  android::IPCThreadState::self()->joinThreadPool();
  return false;
}

bool playRole(const std::string& role, int argument) {
  if (role == "notify") return notify(argument);
  if (role == "query") return query(argument);
  if (role == "stuck") return stuck(argument);
  return role == "echo" && echo(argument);
}

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  setvbuf(stdout, nullptr, _IOLBF, 0);
  const bool record = argc > 1 && strcmp(argv[1], "record") == 0;
  if (argc > 1 && !record) return playRole(argv[1], argc > 2 ? atoi(argv[2]) : 0) ? 0 : 1;
  if (record) {
    for (const auto& [name, hex] : packParcels()) std::printf("parcel %s %s\n", name.c_str(), hex.c_str());
  }
  android::ProcessState::self()->startThreadPool();
  return RUN_ALL_TESTS();
}
