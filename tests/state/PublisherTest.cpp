// From an atom that another process writes to its socket, to the answer about that process.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <statsd/StatsEventWriter.h>
#include <sys/wait.h>
#include <unistd.h>

#include "state/ApplicationStateManager.h"
#include "stats/StatsManagerBuilder.h"
#include "support/TempDir.h"

namespace Torv::OS::Diagnostics {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;
using testing::UnorderedElementsAre;

// A process that publishes its states and those of a session, then lives until it is killed.
pid_t forkPublisher() {
  int published[2];
  EXPECT_EQ(pipe2(published, O_CLOEXEC), 0);
  const pid_t pid = fork();
  if (pid == 0) {
    if (getuid() == 0 && setuid(10'000) != 0) _exit(1);
    libstatsd::StatsEventWriter writer;
    writer.publishApplicationState(getpid(), "screen", "home");
    writer.publishApplicationState(getpid(), "screen", "settings");
    writer.publishTelemetrySession("service", "user");
    close(published[1]);
    while (true) pause();
  }
  close(published[1]);
  char end;
  EXPECT_EQ(read(published[0], &end, 1), 0);
  close(published[0]);
  return pid;
}

TEST(Publisher, IsAnsweredForUntilItHasBeenDeadForAMinute) {
  const test::TempDir runtime;
  const test::ScopedEnv env("TORV_RUNTIME_DIR", runtime.path());
  StatsManagerBuilder builder;
  builder.setConfigId(57476).addAtomId(110010).addAtomId(111983).addAllowedLogSource("AID_APP");
  int64_t now = 1'000'000;
  std::unique_ptr<StatsManager> feed = std::move(builder).build();
  ASSERT_NE(feed, nullptr);
  ASSERT_EQ(chmod(runtime.path().c_str(), 0755), 0);
  ApplicationStateManager manager(std::make_unique<BlackBox>([&now] { return now; }), std::move(feed), 60);

  const pid_t publisher = forkPublisher();
  const auto states = ElementsAre(Pair("screen", "settings"));
  EXPECT_THAT(manager.getAllProcessStates(), ElementsAre(Pair(publisher, states)));
  EXPECT_THAT(manager.getAllGlobalStates().at("telemetry"),
              UnorderedElementsAre(Pair("service_session_id", HasSubstr(R"("v":"service")")),
                                   Pair("user_active_session_id", HasSubstr(R"("v":"user")"))));
  manager.cleanup();

  kill(publisher, SIGKILL);
  waitpid(publisher, nullptr, 0);
  EXPECT_THAT(*manager.getApplicationStateForPid(publisher), states);
  manager.cleanup();
  now += 59;
  manager.cleanup();
  EXPECT_THAT(*manager.getApplicationStateForPid(publisher), states);
  now += 1;
  manager.cleanup();
  EXPECT_EQ(manager.getApplicationStateForPid(publisher), std::nullopt);
  EXPECT_EQ(manager.getAllGlobalStates().size(), 1U);
}

}  // namespace
}  // namespace Torv::OS::Diagnostics
