// Many clients, dying clients, and a dead process's states.

#include "DeviceTest.h"

#include <linux/android/binder.h>
#include <signal.h>
#include <time.h>

namespace {

using fixture::eventually;
using fixture::Process;

TEST_F(DeviceTest, sixteenClientsAtOnceGetTheirAnswers) {
  ASSERT_TRUE(fixture::publish(getpid(), "who", "everyone's"));
  std::vector<std::unique_ptr<Process>> clients;
  for (int i = 0; i < 16; ++i) {
    const uid_t uid = i % 2 == 0 ? fixture::applicationUid() : fixture::serviceUid();
    clients.push_back(play(uid, {"query", std::to_string(getpid())}));
  }
  for (auto& client : clients) EXPECT_EQ(client->wait(), 0);
}

// Whether a process's main thread stands in the driver's read-and-write call.
bool waitsInBinder(pid_t pid) {
  char call[16];
  snprintf(call, sizeof(call), "0x%lx", static_cast<unsigned long>(BINDER_WRITE_READ));
  return test::readFile("/proc/" + std::to_string(pid) + "/syscall").find(call) != std::string::npos;
}

// A stopped daemon leaves the client in the driver, where it dies; the daemon then finds a request that
// nobody waits for.
TEST_F(DeviceTest, aClientKilledInMidCallHurtsNobody) {
  for (size_t i = 1; i <= 20; ++i) {
    daemon.pause();
    const auto client = play(fixture::applicationUid(), {"stuck"});
    EXPECT_TRUE(eventually([&] { return fixture::countOf(printed(), "ready") == i; }));
    EXPECT_TRUE(eventually([&] { return waitsInBinder(client->pid()); }));
    client->signal(SIGKILL);
    EXPECT_EQ(client->wait(), SIGKILL);
    daemon.process().signal(SIGCONT);
  }
  EXPECT_TRUE(Daemon::answers());
}

// Waits out the real clean-up period twice; only the minute between marking and forgetting is moved.
TEST_F(DeviceTest, aDeadProcessIsRememberedForAMinute) {
  constexpr auto kCleanUpPeriod = std::chrono::seconds(30);
  Process application({"/bin/busybox", "sleep", "1000"});
  const pid_t pid = application.pid();
  const auto isKnown = [pid] { return Daemon::statesOf(pid)["last_words"] == "told"; };
  ASSERT_TRUE(fixture::publish(pid, "last_words", "told"));
  application.signal(SIGKILL);
  application.wait();
  EXPECT_TRUE(isKnown());

  std::this_thread::sleep_for(kCleanUpPeriod + std::chrono::seconds(2));
  EXPECT_TRUE(isKnown()) << "forgotten when it was found dead";
  timespec now;
  ASSERT_EQ(clock_gettime(CLOCK_REALTIME, &now), 0);
  now.tv_sec += 60;
  ASSERT_EQ(clock_settime(CLOCK_REALTIME, &now), 0);
  EXPECT_TRUE(eventually([&] { return !isKnown(); }, std::chrono::milliseconds(100)));
}

}  // namespace
