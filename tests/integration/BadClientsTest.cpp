// Wrong requests get an error, and the service goes on serving. AttackTest has the clients that do their
// worst.

#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "fixture/Daemon.h"

namespace {

using android::Parcel;
using android::status_t;
using android::String16;
using android::os::PersistableBundle;
using fixture::Daemon;
using fixture::IDiagnosticsCollectorService;
using fixture::IDiagnosticsNotificationService;

class BadClientsTest : public testing::Test {
 protected:
  BadClientsTest() {
    daemon.start();
    EXPECT_TRUE(fixture::publish(getpid(), "screen", "home"));
    expectServing();
  }

  ~BadClientsTest() override { expectServing(); }

  // A good client, new to the service, is answered and learns what it asked for.
  void expectServing() {
    PersistableBundle all;
    const auto status = daemon.collector()->getAllAvailableApplicationStateData(&all);
    EXPECT_TRUE(status.isOk()) << status.toString8();
    EXPECT_EQ(all.getPersistableBundleKeys().count(String16(std::to_string(getpid()).c_str())), 1u);
    EXPECT_TRUE(daemon.process().running()) << daemon.log();
  }

  Daemon daemon;
};

struct Request {
  const char* what;
  const char* service;
  uint32_t code;
  String16 token;
  std::vector<int32_t> words;
  status_t expected;
};

TEST_F(BadClientsTest, requestsThatAreWrongGetTheErrorThatSaysHow) {
  constexpr auto kCollector = IDiagnosticsCollectorService::kServiceName;
  constexpr auto kNotifier = IDiagnosticsNotificationService::kServiceName;
  const String16 collector = IDiagnosticsCollectorService::descriptor;
  const String16 notifier = IDiagnosticsNotificationService::descriptor;
  const Request requests[] = {
      {"foreign token", kCollector, 1, notifier, {1, -1}, android::BAD_TYPE},
      {"empty token", kCollector, 2, String16(), {}, android::BAD_TYPE},
      {"another foreign token", kCollector, 3, notifier, {}, android::BAD_TYPE},
      {"notifier, foreign token", kNotifier, 1, collector, {1, 1, 0}, android::BAD_TYPE},
      {"code 0", kCollector, 0, collector, {}, android::UNKNOWN_TRANSACTION},
      {"code 4", kCollector, 4, collector, {}, android::UNKNOWN_TRANSACTION},
      {"the last code", kCollector, 0xffffffff, collector, {}, android::UNKNOWN_TRANSACTION},
      {"notifier, code 2", kNotifier, 2, notifier, {}, android::UNKNOWN_TRANSACTION},
      {"no pid", kCollector, 1, collector, {}, android::NOT_ENOUGH_DATA},
      {"trailing bytes", kCollector, 2, collector, {-1, -1}, android::OK},
      {"a bundle that is none", kNotifier, 1, notifier, {0, 1, 24, 0x21212121, 1}, android::BAD_VALUE},
  };
  for (const Request& request : requests) {
    Parcel data;
    Parcel reply;
    data.writeInterfaceToken(request.token);
    for (int32_t word : request.words) data.writeInt32(word);
    EXPECT_EQ(Daemon::binder(request.service)->transact(request.code, data, &reply), request.expected)
        << request.what;
    expectServing();
  }
}

TEST_F(BadClientsTest, aNameMayBeAsLongAsTheCarrierCarries) {
  const auto ask = [this](size_t length) {
    PersistableBundle states;
    const String16 name(std::string(length, 'x').c_str());
    return daemon.collector()->getApplicationStateDataForProcess(1, name, &states).transactionError();
  };
  EXPECT_EQ(ask(400'000), android::OK);
  EXPECT_EQ(ask(600'000), android::FAILED_TRANSACTION);
}

TEST_F(BadClientsTest, onlyKnownEventsReachTheHandlerAndEveryOneIsLogged) {
  using Code = dev::kerno::internal::diagnostics::IDiagnosticsNotificationEventCode;
  using Limits = std::numeric_limits<int32_t>;
  for (const int32_t code : {-2, -1, 0, 1, 2, 3, Limits::min(), Limits::max()}) {
    EXPECT_TRUE(daemon.notifier()->notifySystemEvent(static_cast<Code>(code), {}).isOk()) << "one-way";
  }
  for (const int32_t code : {-2, -1, 2, 3, Limits::min(), Limits::max()}) {
    EXPECT_TRUE(daemon.logs("Unexpected system event: " + std::to_string(code) + "\n"));
  }
  EXPECT_TRUE(daemon.logs("onEvent called with event id: 0\n"));
  EXPECT_TRUE(daemon.logs("onEvent called with event id: 1\n"));
  EXPECT_EQ(daemon.countInLog("onEvent called"), 2u);
}

}  // namespace
