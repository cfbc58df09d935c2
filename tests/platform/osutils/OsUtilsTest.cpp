#include <future>
#include <string>
#include <thread>

#include <binder/Binder.h>
#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/Parcel.h>
#include <gtest/gtest.h>
#include <osutils/Properties.h>
#include <osutils/ServiceHost.h>
#include <osutils/Telemetry.h>
#include <osutils/Thread.h>
#include <sys/wait.h>

#include "support/TempDir.h"

namespace {

using android::sp;
using android::String16;
using Torv::OS::ServiceHost;
using Torv::OS::Telemetry::parseAtom;

constexpr uint32_t kStop = android::IBinder::FIRST_CALL_TRANSACTION;

class Stoppable final : public android::BBinder {
  android::status_t onTransact(uint32_t code, const android::Parcel& data, android::Parcel* reply,
                               uint32_t flags) override {
    if (code != kStop) return BBinder::onTransact(code, data, reply, flags);
    android::IPCThreadState::self()->stopProcess();
    return android::OK;
  }
};

class OsUtilsTest : public testing::Test {
 protected:
  test::TempDir mRuntime;
  test::ScopedEnv mEnv{"TORV_RUNTIME_DIR", mRuntime.path()};
};

// In a process of its own: a pool that was stopped does not start again.
TEST_F(OsUtilsTest, thePoolServesEveryNameUntilItIsStopped) {
  const pid_t child = fork();
  if (child == 0) {
    ServiceHost host({{"first", new Stoppable()}, {"second", new Stoppable()}});
    host.startThreadPool();
    _exit(7);
  }
  const auto first = android::defaultServiceManager()->waitForService(String16("first"));
  EXPECT_EQ(first->pingBinder(), android::OK);
  const auto second = android::defaultServiceManager()->waitForService(String16("second"));
  android::Parcel data;
  android::Parcel reply;
  EXPECT_EQ(second->transact(kStop, data, &reply), android::OK);
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 7) << status;
}

using OsUtilsDeathTest = OsUtilsTest;

TEST_F(OsUtilsDeathTest, aNameThatIsTakenEndsTheProcess) {
  const sp<android::IBinder> binder = new Stoppable();
  const ServiceHost first({{"taken", binder}});
  EXPECT_EQ(android::defaultServiceManager()->checkService(String16("taken")), binder);
  EXPECT_EXIT(ServiceHost({{"taken", binder}}), testing::KilledBySignal(SIGABRT),
              "Cannot register service \"taken\": a live service has this name");
  EXPECT_EXIT(ServiceHost({{"ndk", std::shared_ptr<ndk::ICInterface>()}}), testing::KilledBySignal(SIGABRT),
              "Cannot register service \"ndk\"");
}

TEST(ThreadTest, cutsANameToWhatTheKernelKeeps) {
  std::promise<void> done;
  std::thread thread([end = done.get_future()] { end.wait(); });
  const std::string_view longest = "ApplicationStateManagerCleanupThread";
  for (const std::string_view name : {longest, longest.substr(0, 5)}) {
    Torv::OS::Thread::setName(thread, name);
    char kept[16] = {};
    EXPECT_EQ(pthread_getname_np(thread.native_handle(), kept, sizeof(kept)), 0);
    EXPECT_EQ(kept, name.substr(0, 15));
  }
  done.set_value();
  thread.join();
  Torv::OS::Thread::setName(thread, "no thread");
}

TEST(TelemetryTest, findsTheVendorAtomInAReportsAtom) {
  android::os::statsd::Atom atom;
  EXPECT_EQ(parseAtom(atom).id, 0);
  atom.mutable_unknown_fields()->AddLengthDelimited(110010, "\x08\x05");
  EXPECT_EQ(parseAtom(atom).id, 110010);
  EXPECT_EQ(parseAtom(atom).payload, "\x08\x05");
}

TEST_F(OsUtilsTest, givesPropertiesOfAnyLength) {
  const std::string tags(64 << 10, 't');
  mRuntime.write("properties", "ro.tags=" + tags + "\n");
  EXPECT_EQ(Torv::Utils::getSystemProperty("ro.tags"), tags);
  EXPECT_EQ(Torv::Utils::getSystemProperty("absent"), "");
}

}  // namespace
