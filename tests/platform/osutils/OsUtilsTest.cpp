#include <csignal>
#include <string>
#include <thread>

#include <binder/Binder.h>
#include <binder/IServiceManager.h>
#include <gtest/gtest.h>
#include <osutils/Properties.h>
#include <osutils/ServiceHost.h>
#include <osutils/Thread.h>

#include "support/TempDir.h"

namespace {

using Torv::OS::ServiceHost;

// The tests of the services run its pool, those of the feed read vendor atoms, those of tasks name threads.
class OsUtilsTest : public testing::Test {
 protected:
  test::TempDir mRuntime;
  test::ScopedEnv mEnv{"TORV_RUNTIME_DIR", mRuntime.path()};
};

using OsUtilsDeathTest = OsUtilsTest;

TEST_F(OsUtilsDeathTest, aNameThatIsTakenEndsTheProcess) {
  const android::sp<android::IBinder> binder = new android::BBinder();
  const ServiceHost first({{"taken", binder}});
  EXPECT_EQ(android::defaultServiceManager()->checkService(android::String16("taken")), binder);
  EXPECT_EXIT(ServiceHost({{"taken", binder}}), testing::KilledBySignal(SIGABRT),
              "Cannot register service \"taken\": a live service has this name");
  EXPECT_EXIT(ServiceHost({{"ndk", std::shared_ptr<ndk::ICInterface>()}}), testing::KilledBySignal(SIGABRT),
              "Cannot register service \"ndk\"");
}

TEST_F(OsUtilsTest, propertiesHaveAnyLengthAndAThreadThatIsNoneGetsNoName) {
  const std::string tags(64 << 10, 't');
  mRuntime.write("properties", "ro.tags=" + tags + "\n");
  EXPECT_EQ(Torv::Utils::getSystemProperty("ro.tags"), tags);
  EXPECT_EQ(Torv::Utils::getSystemProperty("absent"), "");
  std::thread none;
  Torv::OS::Thread::setName(none, "no thread");
}

}  // namespace
