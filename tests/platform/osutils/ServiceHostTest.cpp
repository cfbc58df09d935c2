#include "osutils/ServiceHost.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <binder/Binder.h>
#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/Parcel.h>
#include <gtest/gtest.h>

#include "support/TempDir.h"

namespace {

using android::sp;
using android::String16;
using Torv::OS::ServiceHost;

constexpr uint32_t kStop = android::IBinder::FIRST_CALL_TRANSACTION;

class Stoppable final : public android::BBinder {
  android::status_t onTransact(uint32_t code, const android::Parcel& data, android::Parcel* reply,
                               uint32_t flags) override {
    if (code != kStop) return BBinder::onTransact(code, data, reply, flags);
    android::IPCThreadState::self()->stopProcess();
    return android::OK;
  }
};

class ServiceHostTest : public testing::Test {
 protected:
  test::TempDir mRuntime;
  test::ScopedEnv mEnv{"TORV_RUNTIME_DIR", mRuntime.path()};
};

sp<android::IBinder> lookUp(const char* name) {
  return android::defaultServiceManager()->checkService(String16(name));
}

TEST_F(ServiceHostTest, EveryServiceIsFoundUnderItsName) {
  const sp<android::IBinder> first = new Stoppable();
  const sp<android::IBinder> second = new Stoppable();
  const ServiceHost host({{"first", first}, {"second", second}});
  EXPECT_EQ(lookUp("first"), first);
  EXPECT_EQ(lookUp("second"), second);
}

// In a process of its own: a pool that was stopped does not start again.
TEST_F(ServiceHostTest, ThePoolServesUntilItIsStopped) {
  const pid_t child = fork();
  if (child == 0) {
    ServiceHost host({{"served", sp<android::IBinder>(new Stoppable())}});
    host.startThreadPool();
    _exit(7);
  }
  const auto service = android::defaultServiceManager()->waitForService(String16("served"));
  EXPECT_EQ(service->pingBinder(), android::OK);
  android::Parcel data;
  android::Parcel reply;
  EXPECT_EQ(service->transact(kStop, data, &reply), android::OK);
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 7);
}

using ServiceHostDeathTest = ServiceHostTest;

TEST_F(ServiceHostDeathTest, ANameThatIsTakenEndsTheProcess) {
  const sp<android::IBinder> binder = new Stoppable();
  const ServiceHost first({{"taken", binder}});
  EXPECT_EXIT(ServiceHost({{"taken", binder}}), testing::KilledBySignal(SIGABRT),
              "Cannot register service \"taken\": a live service has this name");
  EXPECT_EXIT(ServiceHost({{"a bad name", binder}}), testing::KilledBySignal(SIGABRT),
              "Cannot register service \"a bad name\"");
  EXPECT_EXIT(ServiceHost({{"ndk", std::shared_ptr<ndk::ICInterface>()}}), testing::KilledBySignal(SIGABRT),
              "Cannot register service \"ndk\"");
}

}  // namespace
