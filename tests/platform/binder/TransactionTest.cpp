// Transactions between two processes.
#include "TestService.h"

#include <future>

#include <signal.h>
#include <unistd.h>

#include <binder/IServiceManager.h>
#include <gtest/gtest.h>

#include "fixture/Process.h"
#include "support/TempDir.h"

namespace {

using android::IBinder;
using android::Parcel;
using android::sp;
using android::String16;
using fixture::Process;
using test::TestService;

constexpr size_t kLimit = 1024 * 1024 - 8 * 1024;

Process serve(const char* name) {
  return Process({fixture::buildDirectory() + "/binder_test_server", name}, {.uid = getuid()});
}

sp<IBinder> lookUp(const char* name) {
  return android::defaultServiceManager()->waitForService(String16(name));
}

android::status_t call(const sp<IBinder>& service, uint32_t code, int32_t argument = 0,
                       Parcel* reply = nullptr, uint32_t flags = 0) {
  Parcel data;
  Parcel unwanted;
  data.writeInt32(argument);
  return service->transact(code, data, reply != nullptr ? reply : &unwanted, flags);
}

std::vector<int32_t> awaitNotes(const sp<IBinder>& service, int32_t count) {
  Parcel reply;
  std::vector<int32_t> result;
  EXPECT_EQ(call(service, TestService::kAwaitNotes, count, &reply), android::OK);
  EXPECT_EQ(reply.readInt32Vector(&result), android::OK);
  return result;
}

class TransactionTest : public testing::Test {
 protected:
  test::HostDir mRuntime;
  Process mServer = serve("service");
  sp<IBinder> mService = lookUp("service");
};

TEST_F(TransactionTest, aProxyHasTheDescriptorOfItsService) {
  EXPECT_EQ(mService->getInterfaceDescriptor(), String16("test.TestService"));
}

TEST_F(TransactionTest, parcelsUpToTheLimitPassAndLargerOnesFailAtTheirSender) {
  for (const auto& [size, expected] : {std::pair(size_t{0}, android::OK),
                                       {kLimit, android::OK},
                                       {kLimit + 1, android::FAILED_TRANSACTION}}) {
    Parcel data;
    Parcel reply;
    EXPECT_EQ(call(mService, TestService::kReplyWith, static_cast<int32_t>(size), &reply), expected);
    EXPECT_EQ(reply.dataSize(), expected == android::OK ? size : 0);
    ASSERT_EQ(data.setDataSize(size), android::OK);
    EXPECT_EQ(mService->transact(TestService::kNote, data, &reply), expected);
    EXPECT_EQ(mService->transact(TestService::kNote, data, nullptr, IBinder::FLAG_ONEWAY), expected);
  }
}

TEST_F(TransactionTest, theCallerIsWhoTheKernelSays) {
  chmod(mRuntime.path().c_str(), 0755);
  fixture::actAs(fixture::applicationUid(), [&] {
    Parcel reply;
    ASSERT_EQ(call(mService, TestService::kWho, 0, &reply), android::OK);
    EXPECT_EQ(reply.readInt32(), static_cast<int32_t>(fixture::applicationUid()));
    EXPECT_EQ(reply.readInt32(), getpid());
  });
}

TEST_F(TransactionTest, aOneWayFloodBeyondItsShareIsRefusedDelaysNoOtherCallAndRunsInOrder) {
  // More of them than the pool has threads.
  for (int i = 0; i < 40; ++i) {
    EXPECT_EQ(call(mService, TestService::kHold, 0, nullptr, IBinder::FLAG_ONEWAY), android::OK);
  }
  int accepted = 0;
  android::status_t status = android::OK;
  for (; status == android::OK && accepted < 1000; accepted += status == android::OK ? 1 : 0) {
    Parcel data;
    data.writeInt32(accepted);
    data.setDataSize(65536);
    status = mService->transact(TestService::kNote, data, nullptr, IBinder::FLAG_ONEWAY);
  }
  EXPECT_EQ(status, android::FAILED_TRANSACTION);
  for (int i = 0; i < 10; ++i) EXPECT_EQ(mService->pingBinder(), android::OK);
  EXPECT_TRUE(awaitNotes(mService, 0).empty());
  EXPECT_EQ(call(mService, TestService::kRelease), android::OK);
  const auto all = awaitNotes(mService, accepted);
  for (int i = 0; i < accepted; ++i) EXPECT_EQ(all[static_cast<size_t>(i)], i);
  EXPECT_EQ(call(mService, TestService::kNote, -1, nullptr, IBinder::FLAG_ONEWAY), android::OK);
  EXPECT_EQ(awaitNotes(mService, accepted + 1).back(), -1);
}

TEST_F(TransactionTest, stoppingThePoolEndsTheServerThoughACallIsStuck) {
  auto stuck = std::async(std::launch::async, [&] { return call(mService, TestService::kHold); });
  auto unread = std::async(std::launch::async, [&] { return call(mService, TestService::kAwaitNotes, 1); });
  EXPECT_EQ(call(mService, TestService::kStop), android::OK);
  EXPECT_EQ(mServer.wait(std::chrono::seconds(5)), 0);
  EXPECT_EQ(stuck.get(), android::DEAD_OBJECT);
  EXPECT_EQ(unread.get(), android::DEAD_OBJECT);
}

TEST_F(TransactionTest, onlyOneProcessPublishesInADirectory) {
  Process second = serve("other");
  EXPECT_TRUE(second.wait(std::chrono::seconds(10)));
  EXPECT_EQ(android::defaultServiceManager()->checkService(String16("other")), nullptr);
  EXPECT_EQ(mService->pingBinder(), android::OK);
}

TEST_F(TransactionTest, aForkedChildCallsOverConnectionsOfItsOwn) {
  ASSERT_EQ(mService->pingBinder(), android::OK);
  const auto askAndExit = [this] {
    Parcel reply;
    const bool asItself = call(mService, TestService::kWho, 0, &reply) == android::OK &&
                          (reply.readInt32(), reply.readInt32()) == getpid();
    _exit(asItself ? 0 : 1);
  };
  EXPECT_EXIT(askAndExit(), testing::ExitedWithCode(0), "");
  EXPECT_EQ(mService->pingBinder(), android::OK);
}

// That those who are linked learn of a death, the tests of the real service show.
class Unlinked final : public IBinder::DeathRecipient {
  void binderDied(const android::wp<IBinder>&) override { ADD_FAILURE() << "it was unlinked"; }
};

TEST_F(TransactionTest, aDeathIsNotToldToThoseWhoAreNotLinkedAnyMore) {
  const sp<Unlinked> recipient = new Unlinked;
  for (int i = 0; i < 3; ++i) {  // each time the last link goes
    ASSERT_EQ(mService->linkToDeath(recipient), android::OK);
    EXPECT_EQ(mService->unlinkToDeath(recipient), android::OK);
  }
  mServer.signal(SIGKILL);
  mServer.wait();
  EXPECT_EQ(mService->pingBinder(), android::DEAD_OBJECT);
  EXPECT_FALSE(mService->isBinderAlive());
  EXPECT_EQ(mService->linkToDeath(recipient), android::DEAD_OBJECT);
}

}  // namespace
