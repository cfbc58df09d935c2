#include <filesystem>

#include <gmock/gmock.h>
#include <osutils/Telemetry.h>
#include <statsd/StatsEventWriter.h>
#include <statsd/StatsdCollection.h>
#include <statsd/StatsdConfiguration.h>
#include <statsd/StatsdStatus.h>
#include <statsd/diagnostics_publisher.h>
#include <sys/socket.h>
#include <unistd.h>

#include "fixture/Process.h"
#include "runtime/SocketPath.h"
#include "support/Hex.h"
#include "support/LogCapture.h"
#include "support/Result.h"
#include "support/TempDir.h"

namespace libstatsd {
namespace {

using android::base::unique_fd;
using test::bytes;
using testing::ElementsAre;
using testing::HasSubstr;

// A runtime directory for this process as the service that keeps atoms.
class StatsdTest : public testing::Test {
 protected:
  StatsdTest() { std::filesystem::create_directory(mRuntime); }

  static PublishStatus publish(const std::vector<std::string>& sources = {"AID_APP"}) {
    StatsdConfiguration configuration;
    for (const int32_t atom : {110010, 111983}) EXPECT_TRUE(configuration.addEventAtomId(atom));
    for (const std::string& source : sources) configuration.addAllowedLogSource(source);
    return configuration.publishConfigurationBlocked(57476, 1000);
  }

  // The payloads of the atoms.
  static std::vector<std::string> fetch() {
    StatsdCollection collection;
    collection.addConfiguration(57476, 1000);
    const auto answer = collection.fetchReportsBlocked();
    std::vector<std::string> payloads;
    for (const Report& report : std::get<std::vector<Report>>(answer)) {
      for (const auto& [time, atom] : report)
        payloads.emplace_back(Torv::OS::Telemetry::parseAtom(atom).payload);
    }
    return payloads;
  }

  test::TempDir mDirectory;
  const std::string mRuntime = mDirectory.path(std::string(150, 'd'));  // which no socket address holds
  test::ScopedEnv mEnvironment{"TORV_RUNTIME_DIR", mRuntime};
  StatsEventWriter mWriter;
};

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

TEST_F(StatsdTest, whoSendsTooMuchOrReadsNothingHoldsNothingUpAndCostsOneLogLine) {
  test::LogCapture log;
  ASSERT_EQ(publish(), PublishStatus::Success);
  const unique_fd sender = socketAt(mRuntime, "statsdw", SOCK_DGRAM, connect);
  for (const size_t size : {4080, 8192}) send(sender.get(), std::string(size, 'x').data(), size, 0);
  std::vector<unique_fd> askers(50);
  for (unique_fd& asker : askers) asker = socketAt(mRuntime, "statsd-status", SOCK_STREAM, connect);
  EXPECT_EQ(mWriter.publishApplicationState(1, "k", "v"), WriteResult::Sent);
  EXPECT_EQ(status().counters.droppedTooLong, 2U);
  EXPECT_EQ(status().counters.held, 1U);
  EXPECT_EQ(log.texts(ANDROID_LOG_WARN).size(), 1U);
}

TEST_F(StatsdTest, aWriterSendsTheEncodingOfADeviceAndTellsWhatItLost) {
  const unique_fd sink = socketAt(mRuntime, "statsdw", SOCK_DGRAM, bind);
  const std::string largest(4064 - 32, 'x');  // the rest of the event takes 32 bytes
  mWriter.publishApplicationState(1234, "screen", "home");
  mWriter.publishTelemetrySession("s", "");
  EXPECT_EQ(mWriter.publishApplicationState(1, "k", largest), WriteResult::Sent);
  EXPECT_EQ(mWriter.publishApplicationState(1, "k", largest + "x"), WriteResult::TooLarge);
  const std::string head = "74617473 07 05 01 00 baad0100";
  EXPECT_THAT(receiveAll(sink),
              ElementsAre(bytes(head + "00 d2040000 02 06000000 73637265656e 02 04000000 686f6d65"),
                          bytes("74617473 07 04 01 00 6fb50100 02 01000000 73 02 00000000"),
                          bytes(head + "00 01000000 02 01000000 6b 02 c00f0000") + largest,
                          bytes("74617473 07 03 01 00 baad0100 0f 04000000")));

  size_t sent = 0;
  while (mWriter.publishApplicationState(1, "", "") == WriteResult::Sent) ASSERT_LT(sent++, 100'000U);
  EXPECT_EQ(mWriter.publishTelemetrySession("", ""), WriteResult::QueueFull);
  EXPECT_EQ(receiveAll(sink).size(), sent);
  for (int i = 0; i < 2; i++) EXPECT_EQ(mWriter.publishTelemetrySession("", ""), WriteResult::Sent);
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

// --- diagctl, the real one ---

fixture::Outcome diagctl(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), DIAGCTL);
  return fixture::run(arguments, {getuid(), {}});
}

// What a diagctl that refuses says.
std::string refusal(const std::vector<std::string>& arguments) {
  const fixture::Outcome outcome = diagctl(arguments);
  EXPECT_EQ(outcome.exitCode(), 1) << outcome.output;
  return outcome.output;
}

TEST_F(StatsdTest, pushedAtomsAreThoseOfAnApplication) {
  ASSERT_EQ(publish(), PublishStatus::Success);
  EXPECT_EQ(diagctl({"push", "--pid", "1234", "screen", "home"}).exitCode(), 0);
  EXPECT_EQ(diagctl({"push", "screen", ""}).exitCode(), 0);
  EXPECT_EQ(diagctl({"push-session", "s-1", "u-2"}).exitCode(), 0);
  EXPECT_THAT(diagctl({"status", "--json"}).output, HasSubstr("\"held\" : 3"));
  const std::vector<std::string> pushed = fetch();
  mWriter.publishApplicationState(1234, "screen", "home");
  mWriter.publishApplicationState(getpid(), "screen", "");  // diagctl's parent counts as the shell
  mWriter.publishTelemetrySession("s-1", "u-2");
  EXPECT_EQ(pushed, fetch());
}

TEST_F(StatsdTest, aPushThatCannotArriveIsRefusedInASentence) {
  EXPECT_THAT(refusal({"push", "k", "v"}),
              HasSubstr(mRuntime + "/statsd-status: No such file or directory. Start one"));
  ASSERT_EQ(publish({"AID_LMKD"}), PublishStatus::Success);
  EXPECT_THAT(
      refusal({"push", "k", "v"}),
      HasSubstr("does not take atoms of uid " + std::to_string(getuid()) + ". It takes those of AID_LMKD"));
  ASSERT_EQ(publish(), PublishStatus::Success);
  EXPECT_THAT(refusal({"push", "k", std::string(5000, 'x')}), HasSubstr("at most 4064 bytes"));
  EXPECT_EQ(diagctl({"push", "--pid", "0", "k", "v"}).exitCode(), 2);
}

TEST_F(StatsdTest, propertiesAreListedAndThoseThatAreReadOnlyKept) {
  EXPECT_EQ(diagctl({"prop", "set", "a.b", "one two"}).exitCode(), 0);
  EXPECT_EQ(diagctl({"prop", "set", "ro.x", "1"}).exitCode(), 0);
  EXPECT_THAT(refusal({"prop", "set", "ro.x", "2"}), HasSubstr("ro.x is read-only"));
  EXPECT_EQ(diagctl({"prop", "list"}).output, "a.b   one two\nro.x  1\n");
}

}  // namespace
}  // namespace libstatsd
