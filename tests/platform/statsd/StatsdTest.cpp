#include <atomic>
#include <filesystem>
#include <future>
#include <set>
#include <thread>

#include <statsd/StatsdStatus.h>
#include <statsd/diagnostics_publisher.h>
#include <sys/socket.h>
#include <unistd.h>

#include "StatsdFixture.h"
#include "runtime/SocketPath.h"
#include "support/LogCapture.h"
#include "support/Result.h"

namespace libstatsd {
namespace {

using android::base::unique_fd;

StatsdStatus status() {
  return readStatsdStatus(std::chrono::seconds(30)).value();
}

// Connects to the place of a service's socket, or binds it.
unique_fd socketAt(const std::string& directory, const char* name, int type, auto attach) {
  const auto path = platform::SocketPath::of(directory, name).value();
  unique_fd fd(socket(AF_UNIX, type | SOCK_CLOEXEC, 0));
  EXPECT_EQ(attach(fd.get(), path.address(), path.size()), 0);
  return fd;
}

// All datagrams, without log header and time stamp.
std::vector<std::string> receiveAll(const unique_fd& sink) {
  std::vector<std::string> all;
  char buffer[8192];
  ssize_t size = 0;
  while ((size = recv(sink.get(), buffer, sizeof(buffer), MSG_DONTWAIT)) >= 0) {
    EXPECT_EQ(buffer[0], 5) << "the id of the log header";
    std::string& datagram = all.emplace_back(buffer + 11, size - 11);
    if (datagram.starts_with("tats")) datagram.erase(4 + 3, sizeof(int64_t));
  }
  return all;
}

TEST_F(StatsdTest, aQuerySeesWhatWasPushedJustBefore) {
  ASSERT_EQ(publish(), PublishStatus::Success);
  for (int i = 0; i < 2000; i++) {
    ASSERT_EQ(mWriter.publishApplicationState(i, "k", "v"), WriteResult::Sent);
    ASSERT_EQ(fetch().size(), 1U) << i;
  }
}

TEST_F(StatsdTest, hearsOnlyTheUidsThatTheConfigurationAllows) {
  if (getuid() != 0) GTEST_SKIP() << "only root can send as other users";
  std::filesystem::permissions(mDirectory.path(), std::filesystem::perms(0755));
  test::LogCapture log;
  ASSERT_EQ(publish({"AID_APP", "AID_SYSTEM"}), PublishStatus::Success);
  for (const uid_t uid : {10123, 1000, 4711}) {
    fixture::actAs(uid, [uid] {
      EXPECT_EQ(status().askerUid, uid);
      EXPECT_EQ(status().askerHeard, uid != 4711) << uid;
      EXPECT_EQ(StatsEventWriter().publishApplicationState(1, "k", "v"), WriteResult::Sent);
    });
  }
  EXPECT_EQ(fetch().size(), 2U);
  EXPECT_EQ(status().counters.droppedSender, 1U);
  EXPECT_THAT(log.texts(ANDROID_LOG_WARN), ElementsAre(HasSubstr("uid 4711 is not heard")));
}

TEST_F(StatsdTest, cProgramsPublishAndLearnWhyNothingWasPublished) {
  EXPECT_EQ(diagnostics_publish_state(1, "k", "v"), -ENOTCONN);
  ASSERT_EQ(publish(), PublishStatus::Success);
  EXPECT_EQ(diagnostics_publish_state(1, "k", nullptr), -EINVAL);
  EXPECT_EQ(diagnostics_publish_state(1, "k", std::string(5000, 'x').c_str()), -EMSGSIZE);
  EXPECT_EQ(diagnostics_publish_state(0, "k", "v"), 0);
  EXPECT_EQ(diagnostics_publish_session("s", "u"), 0);
  const std::vector<std::string> published = fetch();
  mWriter.publishApplicationState(getpid(), "k", "v");
  mWriter.publishTelemetrySession("s", "u");
  EXPECT_EQ(published, fetch());
}

// Each atom that was sent is handed over, to one of two who fetch at once.
TEST_F(StatsdTest, losesAndDoublesNothingUnderAFlood) {
  constexpr int kEach = 3000;
  ASSERT_EQ(publish(), PublishStatus::Success);
  std::atomic<int> sending = 3;
  std::vector<std::jthread> senders;
  for (const int sender : {0, 1, 2}) {
    senders.emplace_back([&sending, sender] {
      StatsEventWriter writer;
      for (int i = 0; i < kEach; i++) {
        while (writer.publishApplicationState(sender * kEach + i, "k", "v") != WriteResult::Sent) {
        }
      }
      sending--;
    });
  }
  const auto fetchAll = [&sending] {
    std::multiset<std::string> seen;
    for (bool over = false; !over;) {
      over = sending == 0;
      for (std::string& payload : fetch()) seen.insert(std::move(payload));
    }
    return seen;
  };
  auto others = std::async(std::launch::async, fetchAll);
  std::multiset<std::string> seen = fetchAll();
  seen.merge(others.get());
  EXPECT_EQ(seen.size(), 3U * kEach);
  EXPECT_EQ(std::set<std::string>(seen.begin(), seen.end()).size(), 3U * kEach) << "handed over twice";
}

TEST_F(StatsdTest, aDatagramLongerThanAnyEventCostsOneLogLineAndNobodyElsesAtom) {
  test::LogCapture log;
  ASSERT_EQ(publish(), PublishStatus::Success);
  const unique_fd fd = socketAt(mDirectory.path(), "statsdw", SOCK_DGRAM, connect);
  for (const size_t size : {4080, 8192}) send(fd.get(), std::string(size, 'x').data(), size, 0);
  EXPECT_EQ(mWriter.publishApplicationState(1, "k", "v"), WriteResult::Sent);
  EXPECT_EQ(fetch().size(), 1U);
  EXPECT_EQ(status().counters.droppedTooLong, 2U);
  EXPECT_EQ(log.texts(ANDROID_LOG_WARN).size(), 1U);
}

TEST_F(StatsdTest, aStatusAskerWhoDoesNotReadHoldsNothingUp) {
  ASSERT_EQ(publish(), PublishStatus::Success);
  std::vector<unique_fd> askers(50);
  for (unique_fd& asker : askers) asker = socketAt(mDirectory.path(), "statsd-status", SOCK_STREAM, connect);
  EXPECT_EQ(mWriter.publishApplicationState(1, "k", "v"), WriteResult::Sent);
  EXPECT_EQ(status().counters.held, 1U);
}

TEST_F(StatsdTest, worksInADirectoryWhosePathNoSocketAddressHolds) {
  // The atom socket's path fits its address exactly, is a byte too long, and far too long.
  for (const size_t length : {99, 100, 250}) {
    const std::string deep = mDirectory.path(std::string(length - mDirectory.path("").size(), 'd'));
    const test::ScopedEnv environment("TORV_RUNTIME_DIR", deep);
    ASSERT_EQ(publish(), PublishStatus::Success) << length;
    EXPECT_EQ(mWriter.publishApplicationState(1, "k", "v"), WriteResult::Sent) << length;
    EXPECT_EQ(fetch().size(), 1U) << length;
    EXPECT_EQ(status().servicePid, getpid()) << length;
  }
}

TEST_F(StatsdTest, aWriterSendsTheEncodingOfADeviceAndGivesUpWhatIsTooLarge) {
  const unique_fd sink = socketAt(mDirectory.path(), "statsdw", SOCK_DGRAM, bind);
  const std::string largest(4064 - 32, 'x');  // the rest of the event takes 32 bytes
  EXPECT_EQ(mWriter.publishApplicationState(1234, "screen", "home"), WriteResult::Sent);
  EXPECT_EQ(mWriter.publishTelemetrySession("s", ""), WriteResult::Sent);
  EXPECT_EQ(mWriter.publishApplicationState(1, "k", largest), WriteResult::Sent);
  EXPECT_EQ(mWriter.publishApplicationState(1, "k", largest + "x"), WriteResult::TooLarge);
  const std::string head = "74617473 07 05 01 00 baad0100";
  EXPECT_THAT(receiveAll(sink),
              ElementsAre(bytes(head + "00 d2040000 02 06000000 73637265656e 02 04000000 686f6d65"),
                          bytes("74617473 07 04 01 00 6fb50100 02 01000000 73 02 00000000"),
                          bytes(head + "00 01000000 02 01000000 6b 02 c00f0000") + largest,
                          bytes("74617473 07 03 01 00 baad0100 0f 04000000")));
}

TEST_F(StatsdTest, aWriterGivesUpOnAFullQueueAndTellsTheServiceAfterwards) {
  const unique_fd sink = socketAt(mDirectory.path(), "statsdw", SOCK_DGRAM, bind);
  size_t sent = 0;
  while (mWriter.publishApplicationState(1, "", "") == WriteResult::Sent) ASSERT_LT(sent++, 100'000U);
  EXPECT_EQ(mWriter.publishTelemetrySession("", ""), WriteResult::QueueFull);
  EXPECT_EQ(receiveAll(sink).size(), sent);
  EXPECT_EQ(mWriter.publishTelemetrySession("", ""), WriteResult::Sent);
  EXPECT_EQ(mWriter.publishTelemetrySession("", ""), WriteResult::Sent);
  const std::string event = bytes("74617473 07 04 01 00 6fb50100 02 00000000 02 00000000");
  EXPECT_THAT(receiveAll(sink), ElementsAre(bytes("f5ffffff 01 02000000 6fb50100"), event, event))
      << "the note, once: 2 lost, EAGAIN, last 111983";
}

TEST(StatsdStatusTest, isRefusedIfAValueIsMissingOrOfAnotherType) {
  Json::Value document = toJson({});
  document["unknown"] = "skipped";
  EXPECT_TRUE(parseStatsdStatus(document.toStyledString()).ok());
  for (const char* name : {"service_pid", "asker_heard", "allowed_sources", "held", "uids"}) {
    for (const Json::Value& wrong : {Json::Value(), Json::Value(-0.5)}) {
      Json::Value changed = document;
      changed[name] = wrong;
      EXPECT_THAT(test::errorOf(parseStatsdStatus(changed.toStyledString())), HasSubstr(name));
    }
  }
}

}  // namespace
}  // namespace libstatsd
