// How the service starts and ends: without statsd, beside a second service, in good order.

#include <cstdlib>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "fixture/Daemon.h"

namespace {

using fixture::Daemon;
using fixture::Process;
using fixture::ProcessOptions;
using fixture::staged;

bool aborted(int status) {
  return WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT;
}

void expectNoFeed(const std::string& log) {
  for (const char* text : {"Failed to publish configuration to statsd due to FailedToReachService",
                           "Failed to create stats manager", "Failed to create state manager"}) {
    EXPECT_NE(log.find(text), std::string::npos) << text << " in:\n" << log;
  }
}

TEST(FaultsTest, noStartWithoutTheStatsdFeed) {
  Daemon daemon;
  daemon.dir().write("runtime/statsdw/in-the-way", "");  // a directory takes the socket's place
  daemon.launch();
  EXPECT_TRUE(aborted(daemon.process().wait().value_or(0)));
  expectNoFeed(daemon.log());
}

// TORV_START_ROUNDS=200 looks longer. In the last round the first one serves already; in the others the gap
// between the two starts goes from 0 to 8 ms.
TEST(FaultsTest, ofTwoServicesOneServesUndisturbedAndTheOtherEnds) {
  const char* wanted = getenv("TORV_START_ROUNDS");
  const int rounds = wanted != nullptr ? std::stoi(wanted) : 10;
  for (int round = 1; round <= rounds; ++round) {
    Daemon daemon;
    ProcessOptions options;
    std::vector<std::unique_ptr<Process>> services;
    for (const char* log : {"first.log", "second.log"}) {
      options.output = daemon.dir().path(log);
      services.push_back(
          std::make_unique<Process>(std::vector{staged("diagnostics_collector_service")}, options));
      std::this_thread::sleep_for(std::chrono::milliseconds(round % 9));
      ASSERT_TRUE(round < rounds || fixture::eventually(&Daemon::answers));
    }
    const auto running = [&] { return services[0]->running() + services[1]->running(); };
    ASSERT_TRUE(fixture::eventually([&] { return running() < 2 && (running() == 0 || Daemon::answers()); }))
        << "both run, or one that does not answer, in round " << round;
    ASSERT_EQ(running(), 1) << "round " << round << test::readFile(daemon.dir().path("first.log"))
                            << test::readFile(daemon.dir().path("second.log"));
    const bool firstServes = services[0]->running();
    EXPECT_TRUE(firstServes || round < rounds);
    EXPECT_TRUE(aborted(services[firstServes ? 1 : 0]->wait().value_or(0)));
    expectNoFeed(test::readFile(daemon.dir().path(firstServes ? "second.log" : "first.log")));
    EXPECT_TRUE(fixture::publish(getpid(), "after", "heard"));
    EXPECT_EQ(Daemon::statesOf(getpid())["after"], "heard") << "round " << round;
  }
}

TEST(FaultsTest, aServiceWhosePoolIsStoppedEndsInGoodOrder) {
  Daemon daemon;
  daemon.start(staged("stoppable_service"));
  EXPECT_EQ(daemon.stop(SIGTERM), 0);
  EXPECT_EQ(daemon.countInLog("The Diagnostics Collector Service is starting threadpool"), 1u);
  EXPECT_EQ(daemon.countInLog("The Diagnostics Collector Service is exited"), 1u);
}

}  // namespace
