#include <algorithm>
#include <atomic>
#include <filesystem>
#include <map>
#include <random>
#include <thread>
#include <tuple>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <osutils/Telemetry.h>
#include <statsd/StatsEventWriter.h>
#include <statsd/StatsdCollection.h>
#include <statsd/StatsdConfiguration.h>
#include <statsd/StatsdStatus.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include "Bytes.h"
#include "Child.h"
#include "runtime/SocketPath.h"
#include "support/LogCapture.h"
#include "support/TempDir.h"

namespace libstatsd {
namespace {

using android::base::unique_fd;
using test::bytes;
using test::Child;
using testing::HasSubstr;

constexpr int32_t kConfigId = 57476;
constexpr int32_t kStateAtom = 110010;
constexpr std::chrono::seconds kPatience{30};

PublishStatus publish(const std::vector<std::string>& sources = {"AID_APP"}) {
  StatsdConfiguration configuration;
  EXPECT_TRUE(configuration.addEventAtomId(kStateAtom));
  EXPECT_TRUE(configuration.addEventAtomId(111983));
  for (const std::string& source : sources) configuration.addAllowedLogSource(source);
  return configuration.publishConfigurationBlocked(kConfigId, 1000);
}

std::vector<AtomReport> fetch() {
  StatsdCollection collection;
  collection.addConfiguration(kConfigId, 1000);
  auto answer = collection.fetchReportsBlocked();
  auto* reports = std::get_if<std::vector<Report>>(&answer);
  if (reports == nullptr || reports->size() != 1) {
    ADD_FAILURE() << "no report";
    return {};
  }
  return std::move(reports->front());
}

std::string payloadOf(const AtomReport& report) {
  return std::string(Torv::OS::Telemetry::parseAtom(report.atom).payload);
}

StatsdStatus status() {
  const auto answer = readStatsdStatus(kPatience);
  const auto* status = std::get_if<StatsdStatus>(&answer);
  EXPECT_NE(status, nullptr) << std::get<std::string>(answer);
  return status != nullptr ? *status : StatsdStatus();
}

// A datagram socket at the atom socket's place: a service that takes nothing by itself.
unique_fd bindSink(const std::string& directory) {
  unlink((directory + "/statsdw").c_str());
  const platform::SocketPath path(directory, "statsdw");
  unique_fd fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  EXPECT_EQ(bind(fd.get(), path.address(), path.size()), 0);
  return fd;
}

std::vector<std::string> receiveAll(const unique_fd& sink) {
  std::vector<std::string> all;
  char buffer[8192];
  ssize_t size = 0;
  while ((size = recv(sink.get(), buffer, sizeof(buffer), 0)) >= 0) all.emplace_back(buffer, size);
  return all;
}

class StatsdTest : public testing::Test {
 protected:
  test::TempDir mDirectory;
  test::ScopedEnv mEnvironment{"TORV_RUNTIME_DIR", mDirectory.path()};
};

TEST_F(StatsdTest, AQuerySeesWhatWasPushedJustBefore) {
  ASSERT_EQ(publish(), PublishStatus::Success);
  StatsEventWriter writer;
  for (int i = 0; i < 2000; i++) {
    ASSERT_EQ(writer.publishApplicationState(i, "k", "v"), WriteResult::Sent);
    ASSERT_EQ(fetch().size(), 1U) << i;
  }
}

TEST_F(StatsdTest, AnotherProcessesAtomsArriveFieldForField) {
  Child publisher([] {
    StatsEventWriter writer;
    const bool sent = writer.publishApplicationState(-5, "screen", "") == WriteResult::Sent &&
                      writer.publishTelemetrySession("s-1", "u-2") == WriteResult::Sent &&
                      writer.write(StatsEvent(kStateAtom, 77).addInt32(1)) == WriteResult::Sent;
    return sent ? 0 : 1;
  });
  ASSERT_EQ(publish(), PublishStatus::Success);
  publisher.start();
  ASSERT_EQ(publisher.wait(), 0);
  const std::vector<AtomReport> atoms = fetch();
  ASSERT_EQ(atoms.size(), 3U);
  EXPECT_EQ(Torv::OS::Telemetry::parseAtom(atoms[0].atom).id, kStateAtom);
  EXPECT_EQ(payloadOf(atoms[0]), bytes("08 fbffffff0f 12 06 73637265656e 1a 00"));
  EXPECT_EQ(Torv::OS::Telemetry::parseAtom(atoms[1].atom).id, 111983);
  EXPECT_EQ(payloadOf(atoms[1]), bytes("0a 03 732d31 12 03 752d32"));
  EXPECT_LE(atoms[0].elapsedTimestampNs, atoms[1].elapsedTimestampNs);
  EXPECT_EQ(atoms[2].elapsedTimestampNs, 77);
}

TEST_F(StatsdTest, HearsOnlyTheUidsThatTheConfigurationAllows) {
  if (getuid() != 0) GTEST_SKIP() << "only root can send as other users";
  std::filesystem::permissions(mDirectory.path(), std::filesystem::perms(0755));
  test::LogCapture log;
  std::map<uid_t, std::unique_ptr<Child>> publishers;
  for (const auto& [uid, heard] : std::map<uid_t, bool>{{10123, true}, {1000, true}, {4711, false}}) {
    publishers[uid] = std::make_unique<Child>([uid = uid, heard = heard] {
      if (!test::becomeUid(uid)) return 2;
      const auto answer = readStatsdStatus(kPatience);
      const auto* status = std::get_if<StatsdStatus>(&answer);
      if (status == nullptr || status->askerUid != uid || status->askerHeard != heard) return 3;
      return StatsEventWriter().publishApplicationState(1, "k", "v") == WriteResult::Sent ? 0 : 4;
    });
  }
  ASSERT_EQ(publish({"AID_APP", "AID_SYSTEM"}), PublishStatus::Success);
  for (const auto& [uid, publisher] : publishers) {
    publisher->start();
    EXPECT_EQ(publisher->wait(), 0) << uid;
  }
  EXPECT_EQ(fetch().size(), 2U);
  EXPECT_EQ(status().counters.droppedSender, 1U);
}

// Senders flood, several threads fetch at once: each atom that was sent is handed over, to one of them, and
// each sender's in its order.
TEST_F(StatsdTest, LosesAndDoublesNothingUnderAFlood) {
  constexpr int kSenders = 3;
  constexpr int kEach = 3000;
  std::vector<std::unique_ptr<Child>> senders;
  for (int sender = 0; sender < kSenders; sender++) {
    senders.push_back(std::make_unique<Child>([sender] {
      StatsEventWriter writer;
      for (int i = 0; i < kEach; i++) {
        while (writer.write(StatsEvent(kStateAtom, i).addInt32(sender)) != WriteResult::Sent) {
        }
      }
      return 0;
    }));
  }
  ASSERT_EQ(publish(), PublishStatus::Success);
  for (auto& sender : senders) sender->start();
  std::atomic<bool> over = false;
  std::vector<std::vector<std::vector<AtomReport>>> batches(2);
  std::vector<std::thread> fetchers;
  for (auto& mine : batches) {
    fetchers.emplace_back([&] {
      while (!over) mine.push_back(fetch());
    });
  }
  for (auto& sender : senders) EXPECT_EQ(sender->wait(), 0);
  over = true;
  for (std::thread& fetcher : fetchers) fetcher.join();
  batches.push_back({fetch()});

  std::map<std::string, std::vector<int64_t>> bySender;
  for (const auto& fetcher : batches) {
    std::map<std::string, int64_t> last;
    for (const auto& batch : fetcher) {
      for (const AtomReport& atom : batch) {
        const std::string sender = payloadOf(atom);
        const int64_t before =
            std::exchange(last.try_emplace(sender, -1).first->second, atom.elapsedTimestampNs);
        EXPECT_LT(before, atom.elapsedTimestampNs);
        bySender[sender].push_back(atom.elapsedTimestampNs);
      }
    }
  }
  ASSERT_EQ(bySender.size(), size_t{kSenders});
  for (auto& [sender, times] : bySender) {
    std::sort(times.begin(), times.end());
    EXPECT_EQ(times.size(), size_t{kEach});
    EXPECT_EQ(std::unique(times.begin(), times.end()), times.end());
  }
  EXPECT_EQ(status().counters.fetched, uint64_t{kSenders} * kEach);
}

TEST_F(StatsdTest, RandomDatagramsCostOneLogLineAndNobodyElsesAtom) {
  test::LogCapture log;
  ASSERT_EQ(publish(), PublishStatus::Success);
  const platform::SocketPath path(mDirectory.path(), "statsdw");
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
  StatsEventWriter writer;
  EXPECT_EQ(writer.publishApplicationState(1, "k", "v"), WriteResult::Sent);
  EXPECT_EQ(fetch().size(), 1U);
  const StatsdCounters counters = status().counters;
  EXPECT_EQ(counters.received, kLongest + 2);
  EXPECT_EQ(counters.droppedTooLong, kLongest - 4079);
  EXPECT_EQ(counters.droppedMalformed + counters.dropNotes, 4080U);
  EXPECT_EQ(log.texts(ANDROID_LOG_WARN).size(), 2U) << "one for each kind";
}

TEST_F(StatsdTest, AStatusAskerWhoDoesNotReadHoldsNothingUp) {
  ASSERT_EQ(publish(), PublishStatus::Success);
  const platform::SocketPath path(mDirectory.path(), "statsd-status");
  std::vector<unique_fd> askers;
  for (int i = 0; i < 50; i++) {
    askers.emplace_back(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    ASSERT_EQ(connect(askers.back().get(), path.address(), path.size()), 0);
  }
  EXPECT_EQ(StatsEventWriter().publishApplicationState(1, "k", "v"), WriteResult::Sent);
  EXPECT_EQ(status().counters.held, 1U);
  EXPECT_EQ(status().servicePid, getpid());
}

TEST_F(StatsdTest, RefusesConfigurationsThatStatsdWould) {
  StatsdConfiguration configuration;
  EXPECT_EQ(configuration.publishConfigurationBlocked(1, 1000), PublishStatus::ConfigurationFailure);
  EXPECT_FALSE(configuration.addEventAtomId(0));
  EXPECT_FALSE(configuration.addEventAtomId(-1));
  EXPECT_FALSE(configuration.addEventAtomId(1 << 29)) << "no field of a report can have that number";
  EXPECT_TRUE(configuration.addEventAtomId(kStateAtom));
  EXPECT_FALSE(configuration.addEventAtomId(kStateAtom));
  EXPECT_EQ(configuration.publishConfigurationBlocked(1, 1000), PublishStatus::ConfigurationFailure);
  for (int i = 0; i < 151; i++) configuration.addAllowedLogSource("AID_APP");
  EXPECT_EQ(configuration.publishConfigurationBlocked(1, 1000), PublishStatus::ConfigurationFailure);
  EXPECT_TRUE(std::holds_alternative<Error>(StatsdCollection().fetchReportsBlocked()));
}

TEST_F(StatsdTest, WorksInADirectoryWhosePathNoSocketAddressHolds) {
  const std::string deep = mDirectory.path(std::string(150, 'd'));
  const test::ScopedEnv environment("TORV_RUNTIME_DIR", deep);
  ASSERT_EQ(publish(), PublishStatus::Success);
  EXPECT_EQ(StatsEventWriter().publishApplicationState(1, "k", "v"), WriteResult::Sent);
  EXPECT_EQ(fetch().size(), 1U);
  EXPECT_EQ(status().counters.fetched, 1U);
}

TEST_F(StatsdTest, LeavesADirectoryOfAnotherUserAlone) {
  test::LogCapture log;
  std::string directory = "/";
  if (getuid() == 0) {
    directory = mDirectory.path("theirs");
    ASSERT_EQ(mkdir(directory.c_str(), 0777), 0);
    ASSERT_EQ(chown(directory.c_str(), 4711, 4711), 0);
  }
  const test::ScopedEnv environment("TORV_RUNTIME_DIR", directory);
  EXPECT_EQ(publish(), PublishStatus::FailedToReachService);
  EXPECT_THAT(log.texts(ANDROID_LOG_ERROR), testing::ElementsAre(HasSubstr(directory + " belongs to uid ")));
  EXPECT_FALSE(std::filesystem::exists(directory + "/statsdw"));
}

TEST_F(StatsdTest, ASecondServiceIsRefusedUntilTheFirstIsDead) {
  Child first([] { return execl(STATSD_SERVICE, STATSD_SERVICE, nullptr); });
  first.start();
  while (std::holds_alternative<std::string>(readStatsdStatus(kPatience))) std::this_thread::yield();
  {
    test::LogCapture log;
    EXPECT_EQ(publish(), PublishStatus::FailedToReachService);
    EXPECT_THAT(log.texts(ANDROID_LOG_ERROR), testing::ElementsAre(HasSubstr("another service holds")));
  }
  EXPECT_NE(status().servicePid, getpid()) << "the first one answers as before";
  first.kill();
  EXPECT_TRUE(std::holds_alternative<std::string>(readStatsdStatus(kPatience)));
  EXPECT_EQ(publish(), PublishStatus::Success) << "what a dead service left is in nobody's way";
  EXPECT_EQ(status().servicePid, getpid());
}

using StatsEventWriterTest = StatsdTest;

TEST_F(StatsEventWriterTest, GivesUpOnAFullQueueAndTellsTheServiceAfterwards) {
  const unique_fd sink = bindSink(mDirectory.path());
  StatsEventWriter writer;
  size_t sent = 0;
  while (writer.write(StatsEvent(kStateAtom, 1)) == WriteResult::Sent) ASSERT_LT(sent++, 100'000U);
  EXPECT_EQ(writer.write(StatsEvent(111983, 1)), WriteResult::Lost);
  EXPECT_EQ(receiveAll(sink).size(), sent);

  EXPECT_EQ(writer.write(StatsEvent(kStateAtom, 1)), WriteResult::Sent);
  EXPECT_EQ(writer.write(StatsEvent(kStateAtom, 1)), WriteResult::Sent);
  const std::vector<std::string> after = receiveAll(sink);
  ASSERT_EQ(after.size(), 3U) << "the note, once, and two events";
  ASSERT_EQ(after[0].size(), 24U);
  EXPECT_EQ(after[0][0], 5);
  EXPECT_EQ(after[0].substr(11), bytes("f5ffffff 01 02000000 6fb50100")) << "2 lost, EAGAIN, last 111983";
  EXPECT_EQ(after[1].substr(11), bytes("74617473 07 02 01 0100000000000000 00 baad0100"));
}

TEST_F(StatsEventWriterTest, FindsARestartedService) {
  StatsEventWriter writer;
  EXPECT_EQ(writer.write(StatsEvent(kStateAtom, 1)), WriteResult::Lost) << "none yet";
  unique_fd sink = bindSink(mDirectory.path());
  EXPECT_EQ(writer.write(StatsEvent(kStateAtom, 1)), WriteResult::Sent);
  EXPECT_EQ(receiveAll(sink).size(), 2U) << "the event, and that one was lost";
  sink.reset();
  sink = bindSink(mDirectory.path());
  EXPECT_EQ(writer.write(StatsEvent(kStateAtom, 1)), WriteResult::Sent);
  EXPECT_EQ(receiveAll(sink).size(), 1U);
  EXPECT_EQ(writer.publishApplicationState(1, "k", std::string(5000, 'x')), WriteResult::TooLarge);
}

}  // namespace
}  // namespace libstatsd
