// A server in this process, and clients that speak to it byte by byte.
#include "TestService.h"

#include "Server.h"

#include <cstring>
#include <future>
#include <thread>

#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "ClientConnection.h"
#include "RemoteService.h"
#include "ServiceDirectory.h"
#include "support/LogCapture.h"
#include "support/TempDir.h"

namespace {

using android::sp;
using android::base::unique_fd;
using platform::binder::FrameHeader;
using platform::binder::FrameKind;
using platform::binder::kMaxPayload;
using platform::binder::Server;
using platform::binder::ServerLimits;
using test::TestService;

constexpr int kOneWay = android::IBinder::FLAG_ONEWAY;

std::vector<uint8_t> frame(uint32_t code, int32_t argument, uint32_t flags = 0) {
  const FrameHeader header{static_cast<uint32_t>(FrameKind::Transaction), sizeof(argument), code, flags};
  std::vector<uint8_t> bytes(sizeof(header) + sizeof(argument));
  memcpy(bytes.data(), &header, sizeof(header));
  memcpy(bytes.data() + sizeof(header), &argument, sizeof(argument));
  return bytes;
}

struct Reply {
  int32_t status = android::OK;
  size_t size = 0;

  bool operator==(const Reply&) const = default;
};

// A client that sends what it likes.
class RawClient {
 public:
  explicit RawClient(unique_fd socket) : mSocket(std::move(socket)) {}

  void send(const std::vector<uint8_t>& bytes) {
    EXPECT_EQ(::send(mSocket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(bytes.size()));
  }
  // The next reply, read to its end; nothing where the server has closed.
  std::optional<Reply> reply() {
    FrameHeader header;
    if (recv(mSocket.get(), &header, sizeof(header), MSG_WAITALL) != sizeof(header)) return std::nullopt;
    std::vector<uint8_t> payload(header.size);
    const auto size = static_cast<ssize_t>(header.size);
    if (size != 0 && recv(mSocket.get(), payload.data(), payload.size(), MSG_WAITALL) != size) {
      return std::nullopt;
    }
    return Reply{static_cast<int32_t>(header.value), payload.size()};
  }
  bool answers() {
    send(frame(android::IBinder::PING_TRANSACTION, 0));
    return reply().has_value();
  }
  void close() { mSocket.reset(); }

 private:
  unique_fd mSocket;
};

class ServerTest : public testing::Test {
 protected:
  void start(const ServerLimits& limits = {}) {
    mServer.emplace(limits);
    auto publication = platform::binder::publish(mAddress);
    ASSERT_EQ(publication.status, android::OK);
    mServer->serve("service", mService, std::move(publication.listener));
  }
  void startPool(size_t threads) {
    mServer->setMaxThreads(threads - 1);
    mServer->startPool();
  }
  RawClient client() { return RawClient(std::move(platform::binder::contact(mAddress, true)->socket)); }

  test::LogCapture mLog;
  test::TempDir mRuntime;
  test::ScopedEnv mEnv{"TORV_RUNTIME_DIR", mRuntime.path()};
  const platform::binder::ServiceAddress mAddress = *platform::binder::addressOf("service");
  const sp<TestService> mService = new TestService;
  std::optional<Server> mServer;
};

constexpr size_t kThreads = 3;

TEST_F(ServerTest, NothingIsDispatchedBeforeThePoolRuns) {
  start();
  RawClient early = client();
  early.send(frame(TestService::kNote, 1, kOneWay));
  early.send(frame(TestService::kNotes, 0));
  EXPECT_TRUE(mService->notes().empty());
  startPool(kThreads);
  EXPECT_TRUE(early.reply());
  EXPECT_EQ(mService->awaitNotes(1), std::vector<int32_t>{1});
}

TEST_F(ServerTest, AFrameMayComeByteByByte) {
  start();
  startPool(kThreads);
  RawClient slow = client();
  for (const uint8_t byte : frame(TestService::kReplyWith, 8)) slow.send({byte});
  EXPECT_EQ(slow.reply(), (Reply{android::OK, 8}));
}

TEST_F(ServerTest, TransactionsThatComeTogetherAreAnsweredInTurn) {
  start();
  startPool(kThreads);
  RawClient eager = client();
  std::vector<uint8_t> all;
  for (const int32_t size : {100, 1'000'000, 200, 1'000'000, 300}) {
    const auto next = frame(TestService::kReplyWith, size);
    all.insert(all.end(), next.begin(), next.end());
  }
  eager.send(all);
  for (const size_t size : {100, 1'000'000, 200, 1'000'000, 300}) {
    EXPECT_EQ(eager.reply(), (Reply{android::OK, size}));
  }
}

TEST_F(ServerTest, AMalformedFrameEndsItsOwnConnectionWithOneLine) {
  start();
  startPool(kThreads);
  RawClient good = client();
  ASSERT_TRUE(good.answers());
  RawClient garbage = client();
  garbage.send(std::vector<uint8_t>(100, 'G'));
  EXPECT_FALSE(garbage.reply());
  RawClient tooLarge = client();
  const FrameHeader header{static_cast<uint32_t>(FrameKind::Transaction), kMaxPayload + 1, 1, 0};
  const auto* const bytes = reinterpret_cast<const uint8_t*>(&header);
  tooLarge.send({bytes, bytes + sizeof(header)});
  EXPECT_FALSE(tooLarge.reply());
  RawClient cut = client();
  cut.send({1});
  cut.close();
  while (mLog.texts(ANDROID_LOG_WARN).size() < 3) std::this_thread::yield();
  EXPECT_TRUE(good.answers());
  mServer.reset();
  const auto lines = mLog.texts(ANDROID_LOG_WARN);
  EXPECT_EQ(lines.size(), 3u);
  for (const std::string& line : lines) {
    EXPECT_NE(line.find("a client of service (uid " + std::to_string(getuid()) + ", pid"), std::string::npos);
  }
}

TEST_F(ServerTest, AReplyOverTheLimitBecomesAnErrorAndOneLine) {
  start();
  startPool(kThreads);
  RawClient greedy = client();
  greedy.send(frame(TestService::kReplyWith, kMaxPayload + 4));
  EXPECT_EQ(greedy.reply(), (Reply{android::FAILED_TRANSACTION, 0}));
  EXPECT_TRUE(greedy.answers());
  EXPECT_EQ(mLog.texts(ANDROID_LOG_WARN).size(), 1u);
}

TEST_F(ServerTest, ClientsThatStallHoldNoThread) {
  start();
  startPool(kThreads);
  std::vector<RawClient> stalled;
  for (size_t i = 0; i < 3 * kThreads; ++i) {
    stalled.push_back(client());
    stalled.back().send(frame(TestService::kReplyWith, kMaxPayload));  // and does not read
    stalled.push_back(client());
    stalled.back().send({'B', 'X'});  // and does not go on
  }
  RawClient good = client();
  for (int i = 0; i < 10; ++i) EXPECT_TRUE(good.answers());
  EXPECT_EQ(stalled[0].reply(), (Reply{android::OK, kMaxPayload}));  // late, but not too late
}

TEST_F(ServerTest, AClientThatStallsForTooLongIsDropped) {
  start({.patience = std::chrono::milliseconds(20)});
  startPool(kThreads);
  RawClient good = client();
  ASSERT_TRUE(good.answers());
  RawClient half = client();
  half.send({'B', 'X'});
  EXPECT_FALSE(half.reply());
  EXPECT_TRUE(good.answers());  // idle for as long, and welcome
  while (mLog.texts(ANDROID_LOG_WARN).empty()) std::this_thread::yield();
  mServer.reset();
  const auto lines = mLog.texts(ANDROID_LOG_WARN);
  EXPECT_EQ(lines.size(), 1u);
  EXPECT_NE(lines[0].find("stalled for too long"), std::string::npos);
}

TEST_F(ServerTest, StalledClientsAreDroppedSoonerWhenTheyHoldTooMuch) {
  start({.patience = std::chrono::minutes(10), .maxStalledBytes = 2 * kMaxPayload + 100});
  startPool(1);
  std::vector<RawClient> deaf;
  for (int i = 0; i < 4; ++i) {
    deaf.push_back(client());
    deaf.back().send(frame(TestService::kReplyWith, kMaxPayload));
  }
  RawClient good = client();
  ASSERT_TRUE(good.answers());  // by the one thread, so after the others
  EXPECT_FALSE(deaf[0].reply());
  EXPECT_FALSE(deaf[1].reply());
  EXPECT_TRUE(deaf[2].reply());
  EXPECT_TRUE(deaf[3].reply());
}

TEST_F(ServerTest, OneWayCallsAreRunThoughTheirClientHasClosed) {
  start();
  RawClient leaving = client();
  for (int i = 0; i < 10; ++i) leaving.send(frame(TestService::kNote, i, kOneWay));
  leaving.close();
  startPool(kThreads);
  EXPECT_EQ(mService->awaitNotes(10).size(), 10u);
}

TEST_F(ServerTest, OneThreadServesOneWayAndTwoWayCallsInTurn) {
  start();
  startPool(1);
  RawClient first = client();
  RawClient second = client();
  for (int i = 0; i < 100; ++i) first.send(frame(TestService::kNote, i, kOneWay));
  EXPECT_TRUE(second.answers());
  EXPECT_TRUE(first.answers());
  EXPECT_EQ(mService->awaitNotes(100).size(), 100u);
}

TEST_F(ServerTest, ThePoolGrowsOnlyWhenNoThreadIsIdle) {
  start();
  startPool(kThreads);
  std::vector<RawClient> holding;
  for (size_t i = 0; i + 1 < kThreads; ++i) {
    holding.push_back(client());
    holding.back().send(frame(TestService::kHold, 0));
  }
  RawClient good = client();
  EXPECT_TRUE(good.answers());
  mService->release();
  for (RawClient& held : holding) EXPECT_TRUE(held.reply());
}

// What is told to a client that makes room is told by its next call, which connects anew.
TEST_F(ServerTest, AnIdleConnectionMakesRoomForANewOne) {
  start({.maxConnections = 2});
  startPool(kThreads);
  const auto proxy = platform::binder::proxyFor(mAddress);
  ASSERT_EQ(proxy->pingBinder(), android::OK);
  RawClient second = client();
  ASSERT_TRUE(second.answers());
  RawClient third = client();
  EXPECT_TRUE(third.answers());
  EXPECT_EQ(proxy->pingBinder(), android::OK);
  EXPECT_TRUE(proxy->isBinderAlive());
}

TEST_F(ServerTest, StoppedItEndsItsThreadsAndItsConnections) {
  start();
  startPool(kThreads);
  auto joined = std::async(std::launch::async, [this] { mServer->join(); });
  RawClient connected = client();
  ASSERT_TRUE(connected.answers());
  mServer->stop();
  joined.get();
  EXPECT_FALSE(connected.reply());
  EXPECT_FALSE(platform::binder::contact(mAddress, true));
}

}  // namespace
