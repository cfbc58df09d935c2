// A server in this process, and clients that speak to it byte by byte.
#include "TestService.h"

#include "Server.h"

#include <sstream>
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

std::string header(uint32_t size, uint32_t code, uint32_t flags = 0) {
  const FrameHeader header{static_cast<uint32_t>(FrameKind::Transaction), size, code, flags};
  return {reinterpret_cast<const char*>(&header), sizeof(header)};
}

std::string frame(uint32_t code, int32_t argument = 0, uint32_t flags = 0) {
  return header(sizeof(argument), code, flags) +
         std::string(reinterpret_cast<char*>(&argument), sizeof(argument));
}

using Reply = std::pair<int32_t, size_t>;  // the status and how many bytes come with it

// A client that sends what it likes.
class RawClient {
 public:
  explicit RawClient(unique_fd socket) : mSocket(std::move(socket)) {}

  void send(const std::string& bytes) {
    EXPECT_EQ(::send(mSocket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(bytes.size()));
  }
  // The next reply, read to its end; nothing where the server has closed.
  std::optional<Reply> reply() {
    FrameHeader header;
    if (recv(mSocket.get(), &header, sizeof(header), MSG_WAITALL) != sizeof(header)) return std::nullopt;
    std::vector<uint8_t> payload(header.size);
    const auto size = static_cast<ssize_t>(header.size);
    if (size != 0 && recv(mSocket.get(), payload.data(), payload.size(), MSG_WAITALL) != size) return {};
    return Reply{static_cast<int32_t>(header.value), payload.size()};
  }
  bool answers() {
    send(frame(android::IBinder::PING_TRANSACTION));
    return reply().has_value();
  }

 private:
  unique_fd mSocket;
};

class ServerTest : public testing::Test {
 protected:
  void start(const ServerLimits& limits, size_t threads) {
    mServer.emplace(limits);
    auto publication = platform::binder::publish(mAddress);
    ASSERT_EQ(publication.status, android::OK);
    mServer->serve("service", mService, std::move(publication.listener));
    if (threads != 0) startPool(threads);
  }
  void startPool(size_t threads) {
    mServer->setMaxThreads(threads - 1);
    mServer->startPool();
  }
  RawClient client() { return RawClient(std::move(platform::binder::contact(mAddress, true)->socket)); }
  std::vector<std::string> awaitWarnings(size_t count) {
    while (mLog.texts(ANDROID_LOG_WARN).size() < count) std::this_thread::yield();
    mServer.reset();
    return mLog.texts(ANDROID_LOG_WARN);
  }

  test::LogCapture mLog;
  test::TempDir mRuntime;
  test::ScopedEnv mEnv{"TORV_RUNTIME_DIR", mRuntime.path()};
  const platform::binder::ServiceAddress mAddress = *platform::binder::addressOf("service");
  const sp<TestService> mService = new TestService;
  std::optional<Server> mServer;
};

constexpr size_t kThreads = 3;

TEST_F(ServerTest, WhatComesBeforeThePoolRunsIsDispatchedThenByOneThreadThoughItsClientHasClosed) {
  start({}, 0);
  std::string notes;
  for (int i = 0; i < 100; ++i) notes += frame(TestService::kNote, i, kOneWay);
  client().send(notes);  // and close
  EXPECT_TRUE(mService->awaitNotes(0).empty());
  startPool(1);
  EXPECT_TRUE(client().answers());
  EXPECT_EQ(mService->awaitNotes(100).size(), 100u);
}

TEST_F(ServerTest, TransactionsMayComeByteByByteOrTogetherAndAreAnsweredInTurn) {
  start({}, kThreads);
  RawClient client = this->client();
  for (const char byte : frame(TestService::kReplyWith, 8)) client.send({byte});
  EXPECT_EQ(client.reply(), (Reply{android::OK, 8}));
  const auto sizes = {100, 1'000'000, 200, 1'000'000, 300};
  std::string all;
  for (const int32_t size : sizes) all += frame(TestService::kReplyWith, size);
  client.send(all);
  for (const size_t size : sizes) EXPECT_EQ(client.reply(), (Reply{android::OK, size}));
}

TEST_F(ServerTest, AMalformedFrameEndsItsOwnConnectionWithOneLine) {
  start({}, kThreads);
  RawClient good = client();
  ASSERT_TRUE(good.answers());
  for (const std::string& bytes : {std::string(100, 'G'), header(kMaxPayload + 1, 1)}) {
    RawClient bad = client();
    bad.send(bytes);
    EXPECT_FALSE(bad.reply());
  }
  client().send("\1");
  EXPECT_TRUE(good.answers());
  const auto lines = awaitWarnings(3);
  EXPECT_EQ(lines.size(), 3u);
  for (const std::string& line : lines) {
    EXPECT_NE(line.find("a client of service (uid " + std::to_string(getuid()) + ", pid"), std::string::npos);
  }
}

TEST_F(ServerTest, AClientThatStallsForTooLongIsDropped) {
  start({.patience = std::chrono::milliseconds(20)}, kThreads);
  RawClient good = client();
  ASSERT_TRUE(good.answers());
  RawClient half = client();
  half.send("BX");
  EXPECT_FALSE(half.reply());
  EXPECT_TRUE(good.answers());  // idle for as long, and welcome
  const auto lines = awaitWarnings(1);
  EXPECT_EQ(lines.size(), 1u);
  EXPECT_NE(lines[0].find("stalled for too long"), std::string::npos);
}

TEST_F(ServerTest, StalledClientsAreDroppedSoonerWhenTheyHoldTooMuch) {
  start({.patience = std::chrono::minutes(10), .maxStalledBytes = 2 * kMaxPayload + 100}, 1);
  std::vector<RawClient> deaf;
  for (int i = 0; i < 4; ++i) {
    deaf.push_back(client());
    deaf.back().send(frame(TestService::kReplyWith, kMaxPayload));
  }
  RawClient good = client();
  ASSERT_TRUE(good.answers());  // by the one thread, so after the others
  for (size_t i = 0; i < deaf.size(); ++i) EXPECT_EQ(deaf[i].reply().has_value(), i >= 2) << i;
}

// The allocator of a sanitizer keeps what is freed, on purpose.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST_F(ServerTest, TheMemoryOfALargeReplyIsGivenBack) {
  const auto residentPages = [] {
    long size = 0;
    long resident = 0;
    std::istringstream(test::readFile("/proc/self/statm")) >> size >> resident;
    return resident;
  };
  start({.memoryKept = std::chrono::milliseconds(1)}, 1);
  RawClient client = this->client();
  ASSERT_TRUE(client.answers());
  const long before = residentPages();
  client.send(frame(TestService::kToilFor, 100'000));
  ASSERT_TRUE(client.reply());
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  const long atMost = before + (8 << 20) / getpagesize();
  while (residentPages() > atMost && std::chrono::steady_clock::now() < deadline) std::this_thread::yield();
  EXPECT_LE(residentPages(), atMost);
}
#endif

// What is told to a client that makes room is told by its next call, which connects anew.
TEST_F(ServerTest, AnIdleConnectionMakesRoomForANewOne) {
  start({.maxConnections = 2}, kThreads);
  const auto proxy = platform::binder::proxyFor(mAddress);
  ASSERT_EQ(proxy->pingBinder(), android::OK);
  RawClient second = client();
  ASSERT_TRUE(second.answers());
  RawClient third = client();
  EXPECT_TRUE(third.answers());
  EXPECT_EQ(proxy->pingBinder(), android::OK);
  EXPECT_TRUE(proxy->isBinderAlive());
}

}  // namespace
