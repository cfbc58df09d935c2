#include <csignal>

#include <binder/Binder.h>
#include <binder/IServiceManager.h>
#include <gtest/gtest.h>
#include <osutils/ServiceHost.h>

#include "support/TempDir.h"

namespace {

using Torv::OS::ServiceHost;

// The tests of the services run its pool, those of the feed read vendor atoms, those of tasks name threads.
TEST(ServiceHostDeathTest, aNameThatIsTakenEndsTheProcess) {
  const test::HostDir host;
  const android::sp<android::IBinder> binder = new android::BBinder();
  const ServiceHost first({{"taken", binder}});
  EXPECT_EQ(android::defaultServiceManager()->checkService(android::String16("taken")), binder);
  EXPECT_EXIT(ServiceHost({{"taken", binder}}), testing::KilledBySignal(SIGABRT),
              "Cannot register service \"taken\": a live service has this name");
  EXPECT_EXIT(ServiceHost({{"ndk", std::shared_ptr<ndk::ICInterface>()}}), testing::KilledBySignal(SIGABRT),
              "Cannot register service \"ndk\"");
}

}  // namespace
