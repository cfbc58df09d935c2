// A server in this process, and clients that speak to it byte by byte.
#include "TestService.h"

#include "Server.h"

#include <thread>

#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <gtest/gtest.h>

#include "ServiceAddress.h"
#include "runtime/SocketPath.h"
#include "support/LogCapture.h"
#include "support/TempDir.h"

namespace platform::binder {
namespace {

using android::base::unique_fd;
using std::chrono::milliseconds;
using test::TestService;

constexpr int kOneWay = android::IBinder::FLAG_ONEWAY;
constexpr size_t kThreads = 3;

std::string header(uint32_t size, uint32_t code, uint32_t flags = 0) {
  const FrameHeader header{static_cast<uint32_t>(FrameKind::Transaction), size, code, flags};
  return {reinterpret_cast<const char*>(&header), sizeof(header)};
}

// A transaction with one number, and with zeros up to `size`.
std::string frame(uint32_t code, int32_t argument = 0, uint32_t flags = 0, uint32_t size = sizeof(int32_t)) {
  std::string payload(reinterpret_cast<char*>(&argument), sizeof(argument));
  payload.resize(size);
  return header(size, code, flags) + payload;
}

// A client that sends what it likes.
class RawClient {
 public:
  explicit RawClient(unique_fd socket) : mSocket(std::move(socket)) {}

  void send(const std::string& bytes) {
    EXPECT_EQ(::send(mSocket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(bytes.size()));
  }
  // Reads the next reply to its end, and returns how many bytes it has. Nothing if the server has closed.
  std::optional<size_t> reply() {
    FrameHeader header;
    if (recv(mSocket.get(), &header, sizeof(header), MSG_WAITALL) != sizeof(header)) return std::nullopt;
    std::vector<uint8_t> payload(header.size);
    const auto size = static_cast<ssize_t>(header.size);
    if (size != 0 && recv(mSocket.get(), payload.data(), payload.size(), MSG_WAITALL) != size) return {};
    return payload.size();
  }
  // Sends nothing more.
  void finish() { shutdown(mSocket.get(), SHUT_WR); }
  bool answers() {
    send(frame(android::IBinder::PING_TRANSACTION));
    return reply().has_value();
  }
  // Waits for the end of the connection, without reading what comes before.
  void awaitEnd() {
    pollfd closed{mSocket.get(), POLLRDHUP, 0};
    EXPECT_EQ(poll(&closed, 1, 60'000), 1);
  }

 private:
  unique_fd mSocket;
};

class ServerTest : public testing::Test {
 protected:
  ~ServerTest() override { mService->release(); }

  void start(const Limits& limits, size_t threads) {
    mServer.emplace(limits);
    mServer->serve("service", mService, std::move(*listenAt(mAddress)));
    if (threads != 0) startPool(threads);
  }
  void startPool(size_t threads) {
    mServer->setMaxThreads(threads - 1);
    mServer->startPool();
  }
  RawClient client() { return RawClient(std::move(*connectTo(mAddress))); }
  std::vector<std::string> warningsAtTheEnd() {
    mServer.reset();
    return mLog.texts(ANDROID_LOG_WARN);
  }

  test::LogCapture mLog;
  test::HostDir mRuntime;
  const ServiceAddress mAddress = *addressOf("service");
  const android::sp<TestService> mService = new TestService;
  std::optional<Server> mServer;
};

TEST_F(ServerTest, callsBeforeThePoolRunsAreDispatchedThenAndHoldNoClosedConnection) {
  start({}, 0);
  RawClient sender = client();
  for (int i = 0; i < 100; ++i) sender.send(frame(TestService::kNote, i, kOneWay));
  sender.finish();
  sender.awaitEnd();
  client().send(frame(TestService::kNote, 100));  // and close
  EXPECT_TRUE(mService->awaitNotes(0).empty());
  startPool(1);
  EXPECT_EQ(mService->awaitNotes(101).size(), 101u);
}

TEST_F(ServerTest, transactionsThatComeTogetherAreAnsweredInTurn) {
  start({}, kThreads);
  RawClient client = this->client();
  const auto sizes = {100, 1'000'000, 200, 1'000'000, 300};
  std::string all;
  for (const int32_t size : sizes) all += frame(TestService::kReplyWith, size, 0, size / 10);
  client.send(all);
  for (const size_t size : sizes) EXPECT_EQ(client.reply(), size);
}

TEST_F(ServerTest, aMalformedFrameEndsItsOwnConnectionAndTheLogSaysSoOnceASecond) {
  start({}, kThreads);
  RawClient good = client();
  ASSERT_TRUE(good.answers());
  for (int i = 0; i < 10; ++i) {
    for (const std::string& bytes : {std::string(100, 'G'), header(kMaxPayload + 1, 1)}) {
      RawClient bad = client();
      bad.send(bytes);
      EXPECT_FALSE(bad.reply());
    }
  }
  EXPECT_TRUE(good.answers());
  const auto lines = warningsAtTheEnd();
  ASSERT_FALSE(lines.empty());
  EXPECT_LE(lines.size(), 10u);
  EXPECT_NE(lines[0].find("a client of service (uid " + std::to_string(getuid()) + ", pid"),
            std::string::npos);
}

TEST_F(ServerTest, aClientThatStallsIsDroppedAndAnIdleOneIsNot) {
  start({.transfer = milliseconds(50)}, kThreads);
  RawClient good = client();
  ASSERT_TRUE(good.answers());
  RawClient halfHeader = client();
  halfHeader.send("BX");
  EXPECT_FALSE(halfHeader.reply());
  EXPECT_TRUE(good.answers());
}

TEST_F(ServerTest, aLargeRequestWaitsForItsUidsShareAndSmallOnesDoNot) {
  constexpr uint32_t kSize = 20'000;
  start({.transfer = milliseconds(100), .requests = {kSize * 4, kSize}}, kThreads);
  RawClient half = client();
  half.send(frame(TestService::kNote, 1, 0, kSize).substr(0, 100));
  RawClient large = client();
  large.send(frame(TestService::kNote, 2, 0, kSize));
  EXPECT_TRUE(client().answers());
  EXPECT_TRUE(large.reply());  // as soon as
  EXPECT_FALSE(half.reply());  // this one is dropped
  EXPECT_EQ(mService->awaitNotes(1), std::vector<int32_t>{2});
}

TEST_F(ServerTest, repliesThatNobodyReadsHoldTheirShareAndThenSlotsOfThePool) {
  start({.transfer = milliseconds(100), .replies = {4 * kMaxPayload, kMaxPayload + 100}}, kThreads);
  std::vector<RawClient> deaf;
  for (size_t i = 0; i < kThreads + 2; ++i) {
    deaf.push_back(client());
    deaf.back().send(frame(TestService::kReplyWith, kMaxPayload));
  }
  EXPECT_TRUE(client().answers());
  for (RawClient& client : deaf) client.awaitEnd();
}

// A client that has to make room learns it from its next call.
TEST_F(ServerTest, theConnectionThatHasStalledElseTheOneThatIsIdleForLongestMakesRoom) {
  start({.connections = 12}, kThreads);  // 3 for each uid
  std::vector<RawClient> idle;
  RawClient stalled = client();
  for (int i = 0; i < 4; ++i) {
    idle.push_back(client());
    ASSERT_TRUE(idle.back().answers());
    if (i == 0) stalled.send("BX");
    std::this_thread::sleep_for(kGiveUpAfter);
  }
  EXPECT_FALSE(stalled.reply());
  idle[0].awaitEnd();
  for (size_t i = 1; i < 4; ++i) EXPECT_TRUE(idle[i].answers()) << i;
}

TEST_F(ServerTest, aConnectionIsRefusedIfAllOfItsUidAreAtWork) {
  start({.connections = 4}, kThreads);
  RawClient busy = client();
  busy.send(frame(TestService::kHold));
  mService->awaitHeld();
  EXPECT_FALSE(client().reply());
  mService->release();
  EXPECT_TRUE(busy.reply());
  EXPECT_EQ(warningsAtTheEnd().size(), 1u);
}

TEST_F(ServerTest, aServerThatHasNoDescriptorLeftAcceptsWhenThereIsOneAgain) {
  start({.connections = 100}, kThreads);
  const auto path = SocketPath::of(mAddress.directory, mAddress.file);
  // accept(2) reserves its descriptor before it waits, so the first connection is accepted in any case.
  std::vector<unique_fd> sockets(2);
  for (unique_fd& fd : sockets) fd.reset(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  const rlimit none{0, limit.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  bool connected = true;
  for (const unique_fd& fd : sockets) connected &= connect(fd.get(), path->address(), path->size()) == 0;
  while (connected && mLog.texts(ANDROID_LOG_WARN).empty()) std::this_thread::yield();
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  ASSERT_TRUE(connected);
  for (unique_fd& fd : sockets) EXPECT_TRUE(RawClient(std::move(fd)).answers());
}

}  // namespace
}  // namespace platform::binder
