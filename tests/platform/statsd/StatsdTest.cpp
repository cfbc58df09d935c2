#include <atomic>
#include <mutex>
#include <random>
#include <set>
#include <thread>

#include <statsd/StatsEventWriter.h>
#include <statsd/StatsdStatus.h>
#include <statsd/diagnostics_publisher.h>
#include <sys/socket.h>

#include "StatsdFixture.h"
#include "runtime/SocketPath.h"
#include "support/LogCapture.h"

namespace libstatsd {
namespace {

using android::base::unique_fd;

StatsdStatus status() {
  return readStatsdStatus(std::chrono::seconds(30)).value();
}

std::vector<std::string> receiveAll(const unique_fd& sink) {
  std::vector<std::string> all;
  char buffer[8192];
  ssize_t size = 0;
  while ((size = recv(sink.get(), buffer, sizeof(buffer), 0)) >= 0) all.emplace_back(buffer, size);
  return all;
}

TEST_F(StatsdTest, aQuerySeesWhatWasPushedJustBefore) {
  ASSERT_EQ(publish(), PublishStatus::Success);
  StatsEventWriter writer;
  for (int i = 0; i < 2000; i++) {
    ASSERT_EQ(writer.publishApplicationState(i, "k", "v"), WriteResult::Sent);
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
  const Report report = fetch();
  ASSERT_EQ(report.size(), 2U);
  EXPECT_EQ(payloadOf(report[0]), pidField(getpid()) + bytes("12 01 6b 1a 01 76"));
  EXPECT_EQ(payloadOf(report[1]), bytes("0a 01 73 12 01 75"));
}

// Senders flood, two threads fetch at once: each atom that was sent is handed over, to one of them.
TEST_F(StatsdTest, losesAndDoublesNothingUnderAFlood) {
  constexpr int kEach = 3000;
  ASSERT_EQ(publish(), PublishStatus::Success);
  std::vector<std::thread> senders;
  for (const int sender : {1, 2, 3}) {
    senders.emplace_back([sender] {
      StatsEventWriter writer;
      for (int i = 0; i < kEach; i++) {
        while (writer.write(StatsEvent(kStateAtom, i).addInt32(sender)) != WriteResult::Sent) {
        }
      }
    });
  }
  std::mutex mutex;
  std::set<std::pair<std::string, int64_t>> seen;
  const auto take = [&] {
    for (const AtomReport& atom : fetch()) {
      const std::lock_guard lock(mutex);
      EXPECT_TRUE(seen.emplace(payloadOf(atom), atom.elapsedTimestampNs).second) << "handed over twice";
    }
  };
  std::atomic<bool> over = false;
  std::thread other([&] {
    while (!over) take();
  });
  for (std::thread& sender : senders) {
    take();
    sender.join();
  }
  over = true;
  other.join();
  take();
  EXPECT_EQ(seen.size(), senders.size() * kEach);
}

TEST_F(StatsdTest, randomDatagramsCostOneLogLineAndNobodyElsesAtom) {
  test::LogCapture log;
  ASSERT_EQ(publish(), PublishStatus::Success);
  const auto path = platform::SocketPath::of(mDirectory.path(), "statsdw").value();
  const unique_fd fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  ASSERT_EQ(connect(fd.get(), path.address(), path.size()), 0);
  std::mt19937 random(1);
  std::string datagram;
  constexpr size_t kLongest = 8192;
  for (size_t size = 0; size <= kLongest; size++) {
    datagram.resize(size);
    for (char& byte : datagram) byte = static_cast<char>(random());
    ASSERT_EQ(send(fd.get(), datagram.data(), size, 0), static_cast<ssize_t>(size));
  }
  EXPECT_EQ(StatsEventWriter().publishApplicationState(1, "k", "v"), WriteResult::Sent);
  EXPECT_EQ(fetch().size(), 1U);
  const StatsdCounters counters = status().counters;
  EXPECT_EQ(counters.received, kLongest + 2);
  EXPECT_EQ(counters.droppedTooLong, kLongest - 4079);
  EXPECT_EQ(counters.droppedMalformed + counters.dropNotes, 4080U);
  EXPECT_EQ(log.texts(ANDROID_LOG_WARN).size(), 2U) << "one for each kind";
}

TEST_F(StatsdTest, aStatusAskerWhoDoesNotReadHoldsNothingUp) {
  ASSERT_EQ(publish(), PublishStatus::Success);
  const auto path = platform::SocketPath::of(mDirectory.path(), "statsd-status").value();
  std::vector<unique_fd> askers;
  for (int i = 0; i < 50; i++) {
    askers.emplace_back(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    ASSERT_EQ(connect(askers.back().get(), path.address(), path.size()), 0);
  }
  EXPECT_EQ(StatsEventWriter().publishApplicationState(1, "k", "v"), WriteResult::Sent);
  EXPECT_EQ(status().counters.held, 1U);
}

TEST_F(StatsdTest, worksInADirectoryWhosePathNoSocketAddressHolds) {
  // The atom socket's path fits its address exactly, is a byte too long, and far too long.
  for (const size_t length : {99, 100, 250}) {
    const std::string deep = mDirectory.path(std::string(length - mDirectory.path("").size(), 'd'));
    const test::ScopedEnv environment("TORV_RUNTIME_DIR", deep);
    ASSERT_EQ(publish(), PublishStatus::Success) << length;
    EXPECT_EQ(StatsEventWriter().publishApplicationState(1, "k", "v"), WriteResult::Sent) << length;
    EXPECT_EQ(fetch().size(), 1U) << length;
    EXPECT_EQ(status().servicePid, getpid()) << length;
  }
}

TEST_F(StatsdTest, aWriterGivesUpOnAFullQueueAndTellsTheServiceAfterwards) {
  // A datagram socket at the atom socket's place: a service that takes nothing by itself.
  const auto path = platform::SocketPath::of(mDirectory.path(), "statsdw").value();
  const unique_fd sink(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  ASSERT_EQ(bind(sink.get(), path.address(), path.size()), 0);
  StatsEventWriter writer;
  size_t sent = 0;
  while (writer.write(StatsEvent(kStateAtom, 1)) == WriteResult::Sent) ASSERT_LT(sent++, 100'000U);
  EXPECT_EQ(writer.write(StatsEvent(kSessionAtom, 1)), WriteResult::QueueFull);
  EXPECT_EQ(receiveAll(sink).size(), sent);

  EXPECT_EQ(writer.write(StatsEvent(kStateAtom, 1)), WriteResult::Sent);
  EXPECT_EQ(writer.write(StatsEvent(kStateAtom, 1)), WriteResult::Sent);
  const std::vector<std::string> after = receiveAll(sink);
  ASSERT_EQ(after.size(), 3U) << "the note, once, and two events";
  EXPECT_EQ(after[0][0], 5) << "the id of the log header";
  EXPECT_EQ(after[0].substr(11), bytes("f5ffffff 01 02000000 6fb50100")) << "2 lost, EAGAIN, last 111983";
  EXPECT_EQ(after[1].substr(11), bytes("74617473 07 02 01 0100000000000000 00 baad0100"));
}

}  // namespace
}  // namespace libstatsd
