// Publishers that flood the service. DIAG_LOAD_SECONDS says for how long each flood goes on (default: 6).

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <signal.h>
#include <statsd/StatsEventWriter.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "fixture/Daemon.h"

namespace {

using android::String16;
using android::os::PersistableBundle;
using fixture::Daemon;
using fixture::staged;
using libstatsd::StatsEventWriter;
using std::chrono::steady_clock;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr long kSanitizerShare = 8;  // a sanitizer's own memory is many times the program's
#else
constexpr long kSanitizerShare = 1;
#endif

std::string number(long value) {
  char text[16];
  snprintf(text, sizeof(text), "%015ld", value);
  return text;
}

class FloodTest : public testing::Test {
 protected:
  FloodTest() { daemon.start(); }
  ~FloodTest() override {
    for (const pid_t pid : processes) end(pid);
  }

  static void end(pid_t pid) {
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
  }

  // A process that only exists.
  pid_t newProcess() {
    processes.push_back(fork());
    while (processes.back() == 0) pause();
    return processes.back();
  }

  // 8 KiB: 136 keys with three values, all texts of 15 characters. The keys are the pid's own.
  static void publishEightKiB(StatsEventWriter& writer, int pid) {
    for (int round = 0; round < 3; ++round) {
      for (int key = 0; key < 136; ++key) {
        // A busy machine can leave the socket full for longer than the writer waits.
        while (writer.publishApplicationState(pid, number(pid * 1000L + key), number(round)) !=
               libstatsd::WriteResult::Sent) {
        }
      }
    }
    PersistableBundle reply;  // a query fetches, so that no atom is lost in statsd
    EXPECT_TRUE(Daemon::collector()->getApplicationStateDataForProcess(pid, String16(), &reply).isOk());
  }

  static size_t keysOf(int pid) {
    PersistableBundle reply;
    PersistableBundle states;
    EXPECT_TRUE(Daemon::collector()->getApplicationStateDataForProcess(pid, String16(), &reply).isOk());
    reply.getPersistableBundle(String16("ApplicationStateData"), &states);
    return states.size();
  }

  // Publishes as fast as it can, while another thread asks for everything.
  static void flood(const std::function<void(StatsEventWriter&, long)>& publish) {
    const char* seconds = getenv("DIAG_LOAD_SECONDS");
    const auto end =
        steady_clock::now() + std::chrono::duration<double>(seconds ? strtod(seconds, nullptr) : 6);
    std::thread asker([&] {
      while (steady_clock::now() < end) {
        PersistableBundle all;
        EXPECT_TRUE(Daemon::collector()->getAllAvailableApplicationStateData(&all).isOk());
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
      }
    });
    long atoms = 0;
    fixture::actAs(fixture::applicationUid(), [&] {
      StatsEventWriter writer;
      for (; steady_clock::now() < end; ++atoms) publish(writer, atoms);
    });
    asker.join();
    printf("%ld atoms; ", atoms);
  }

  // A size from /proc/<pid>/status, in KiB.
  long memoryKib(const std::string& field) {
    std::istringstream status(test::readFile("/proc/" + std::to_string(daemon.process().pid()) + "/status"));
    std::string word;
    while (status >> word && word != field + ":") status.ignore(1000, '\n');
    long kib = 0;
    EXPECT_TRUE(status >> kib) << field;
    return kib;
  }

  Daemon daemon;
  std::vector<pid_t> processes;
};

TEST_F(FloodTest, leavesAProcessWithEightKiBItsStatesAndTheDaemonBelowItsBound) {
  for (int i = 0; i < 50; ++i) newProcess();
  fixture::actAs(fixture::applicationUid(), [&] {
    StatsEventWriter writer;
    for (const pid_t pid : processes) publishEightKiB(writer, pid);
    // The rest of what 2,048 processes may hold. No process has these pids, so their states may go.
    for (int pid = 1'000'000; pid < 1'002'000; ++pid) publishEightKiB(writer, pid);
  });
  const pid_t dead = processes.back();
  processes.pop_back();
  end(dead);
  const pid_t attacker = newProcess();
  processes.pop_back();
  const auto expectAllThere = [&](const char* after) {
    for (const pid_t pid : processes) EXPECT_EQ(keysOf(pid), 136U) << after << ", " << pid;
    EXPECT_EQ(keysOf(dead), 136U) << after << ", of a process that died a moment ago";
    printf("peak after %s: %ld KiB\n", after, memoryKib("VmHWM"));
    EXPECT_LT(memoryKib("VmHWM"), 64 * 1024 * kSanitizerShare) << after;
  };
  flood([&](StatsEventWriter& writer, long i) {
    writer.publishApplicationState(attacker, number(i), number(i));
  });
  expectAllThere("unique keys");
  flood([](StatsEventWriter& writer, long i) {
    writer.publishApplicationState(2'000'000 + static_cast<int>(i % 1'200'000), "key", "value");
  });
  expectAllThere("invented pids");
  end(attacker);
  EXPECT_TRUE(daemon.logs("The black box dropped or refused"));
}

TEST_F(FloodTest, sixteenCallersOverAFullBlackBoxTakeLittleMemoryAndGiveItBack) {
  fixture::actAs(fixture::applicationUid(), [&] {
    StatsEventWriter writer;
    for (int pid = 1'000'000; pid < 1'001'200; ++pid) publishEightKiB(writer, pid);  // 20 MB
    for (int i = 0; i < 134; ++i) writer.publishApplicationState(1, number(i), std::string(3900, 'x'));
  });
  const long before = memoryKib("VmRSS");
  {
    fixture::ProcessOptions options = daemon.client();
    options.output = daemon.dir().path("client.log");
    const fixture::Process callers({staged("greedy_client"), "16"}, options);
    EXPECT_TRUE(fixture::eventually([&] { return test::readFile(options.output).find("ready") == 0; }));
    std::this_thread::sleep_for(std::chrono::seconds(2));
  }
  const auto end = steady_clock::now();
  EXPECT_LT(memoryKib("VmHWM"), 96 * 1024 * kSanitizerShare);
  if (kSanitizerShare == 1) {
    EXPECT_TRUE(fixture::eventually([&] { return memoryKib("VmRSS") <= before + before / 10; }));
    EXPECT_LT(steady_clock::now() - end, std::chrono::seconds(3)) << "the trim comes within two";
  }
  printf("before %ld KiB, peak %ld KiB, given back after %.1f s\n", before, memoryKib("VmHWM"),
         std::chrono::duration<double>(steady_clock::now() - end).count());
}

}  // namespace
