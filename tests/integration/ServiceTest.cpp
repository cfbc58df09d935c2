// What holds over the host's carrier and over the platform's own libbinder alike: this file is in the
// integration test and in the checks that run inside the emulated machine.

#include <atomic>

#include <signal.h>

#include <gtest/gtest.h>

#include "fixture/Daemon.h"

namespace {

using android::IBinder;
using android::Parcel;
using android::sp;
using android::status_t;
using android::String16;
using android::binder::Status;
using fixture::Daemon;
using fixture::IDiagnosticsCollectorService;
using fixture::IDiagnosticsNotificationService;

struct Request {
  const char* what;
  const char* service;
  uint32_t code;
  String16 token;
  std::vector<int32_t> words;
  status_t expected;
  int32_t exception = 0;  // in the reply
};

TEST(ServiceTest, requestsThatAreWrongGetTheErrorThatSaysHow) {
  constexpr auto kCollector = IDiagnosticsCollectorService::kServiceName;
  constexpr auto kNotifier = IDiagnosticsNotificationService::kServiceName;
  const String16 collector = IDiagnosticsCollectorService::descriptor;
  const String16 notifier = IDiagnosticsNotificationService::descriptor;
  const Request requests[] = {
      {"foreign token", kCollector, 1, notifier, {1, -1}, android::BAD_TYPE},
      {"empty token", kCollector, 2, String16(), {}, android::BAD_TYPE},
      {"notifier, foreign token", kNotifier, 1, collector, {1, 1, 0}, android::BAD_TYPE},
      {"code 0", kCollector, 0, collector, {}, android::UNKNOWN_TRANSACTION},
      {"code 4", kCollector, 4, collector, {}, android::UNKNOWN_TRANSACTION},
      {"notifier, code 2", kNotifier, 2, notifier, {}, android::UNKNOWN_TRANSACTION},
      {"no pid", kCollector, 1, collector, {}, android::NOT_ENOUGH_DATA},
      {"trailing bytes", kCollector, 2, collector, {-1, -1}, android::OK},
      {"no bundle", kNotifier, 1, notifier, {0}, android::NOT_ENOUGH_DATA},
      {"a bundle that is none", kNotifier, 1, notifier, {0, 1, 24, 0x21212121, 1}, android::BAD_VALUE},
      {"no name", kCollector, 1, collector, {1}, android::OK, Status::EX_NULL_POINTER},
      {"a name too long", kCollector, 1, collector, {1, 1 << 30}, android::OK, Status::EX_NULL_POINTER},
      {"a null bundle", kNotifier, 1, notifier, {0, 0}, android::OK, Status::EX_NULL_POINTER},
      {"an event that is none gets no status", kNotifier, 1, notifier, {2, 1, 0}, android::OK},
  };
  Daemon daemon;
  daemon.start();
  ASSERT_TRUE(fixture::publish(getpid(), "screen", "home"));
  for (const Request& request : requests) {
    Parcel data;
    Parcel reply;
    data.writeInterfaceToken(request.token);
    for (int32_t word : request.words) data.writeInt32(word);
    const status_t result = Daemon::binder(request.service)->transact(request.code, data, &reply);
    EXPECT_EQ(result, request.expected) << request.what;
    const bool hasStatus = result == android::OK && reply.dataSize() > 0;
    EXPECT_EQ(hasStatus ? reply.readExceptionCode() : 0, request.exception) << request.what;
    EXPECT_EQ(Daemon::statesOf(getpid())["screen"], "home") << "after " << request.what;
  }
}

TEST(ServiceTest, clientsLearnOfItsDeathAndTheyAndPublishersFindTheNextOne) {
  class Mourner : public IBinder::DeathRecipient {
   public:
    std::atomic<int> deaths = 0;

   private:
    void binderDied(const android::wp<IBinder>&) override { ++deaths; }
  };
  Daemon daemon;
  daemon.start();
  ASSERT_TRUE(fixture::publish(getpid(), "life", "first"));
  EXPECT_EQ(Daemon::statesOf(getpid())["life"], "first");
  const auto before = Daemon::binder(IDiagnosticsCollectorService::kServiceName);
  const sp<Mourner> mourner = new Mourner;
  ASSERT_EQ(before->linkToDeath(mourner), android::OK);

  EXPECT_EQ(daemon.stop(SIGKILL), SIGKILL) << "it had ended by itself before";
  EXPECT_TRUE(fixture::eventually([&] { return mourner->deaths == 1; }));
  EXPECT_EQ(before->pingBinder(), android::DEAD_OBJECT);
  EXPECT_TRUE(fixture::eventually(
      [] { return Daemon::binder(IDiagnosticsCollectorService::kServiceName) == nullptr; }));

  daemon.start();
  EXPECT_TRUE(Daemon::askAll().empty());
  EXPECT_TRUE(fixture::publish(getpid(), "life", "second"));
  EXPECT_EQ(Daemon::statesOf(getpid())["life"], "second");
  EXPECT_EQ(before->pingBinder(), android::DEAD_OBJECT);
  EXPECT_EQ(mourner->deaths, 1);
}

}  // namespace
