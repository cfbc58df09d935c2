// Many clients, dying clients, a dead process's states, and the daemon's own death; these run last.

#include <gtest/gtest.h>
#include <linux/android/binder.h>
#include <signal.h>
#include <sys/wait.h>
#include <time.h>
#include <utils/String16.h>

#include <atomic>
#include <deque>
#include <thread>

#include "Machine.h"

namespace {

using android::IBinder;
using android::sp;
using android::String16;
using android::os::PersistableBundle;

bool isKnown(pid_t pid) {
  PersistableBundle states;
  EXPECT_TRUE(Daemon::collector()->getApplicationStateDataForProcess(pid, String16(), &states).isOk());
  return flatten(states)["ApplicationStateData/last_words"] == "told";
}

TEST(Endurance, SixteenClientsAtOnceGetTheirAnswers) {
  Child application(kApplication, {"publish", "who", "everyone's"});
  ASSERT_TRUE(application.ready());
  std::deque<Child> clients;
  for (int i = 0; i < 16; ++i) {
    clients.emplace_back(
        i % 2 == 0 ? kApplication : kSystem,
        std::vector<std::string>{"query", std::to_string(application.pid()), "everyone's", "10"});
  }
  for (Child& client : clients) EXPECT_EQ(client.wait(), 0);
}

// Whether a process's main thread stands in the driver's read-and-write call.
bool waitsInBinder(pid_t pid) {
  char call[16];
  snprintf(call, sizeof(call), "0x%lx", static_cast<unsigned long>(BINDER_WRITE_READ));
  return test::readFile("/proc/" + std::to_string(pid) + "/syscall").find(call) != std::string::npos;
}

// Returns when every thread has come to rest.
void stopDaemon() {
  Machine::daemon().signal(SIGSTOP);
  siginfo_t info;
  EXPECT_EQ(waitid(P_PID, Machine::daemon().pid(), &info, WSTOPPED), 0);
}

// A stopped daemon leaves the client in the driver, where it dies; the daemon then finds a request that
// nobody waits for.
TEST(Endurance, AClientKilledInMidCallHurtsNobody) {
  for (int i = 0; i < 20; ++i) {
    Child client(kApplication, {"stuck"});
    ASSERT_TRUE(client.ready());
    stopDaemon();
    client.release();
    EXPECT_TRUE(fixture::eventually([&] { return waitsInBinder(client.pid()); }));
    client.kill();
    EXPECT_EQ(client.wait(), 128 + SIGKILL);
    Machine::daemon().signal(SIGCONT);
  }
  EXPECT_EQ(Daemon::binder(IDiagnosticsCollectorService::kServiceName)->pingBinder(), android::OK);
}

// Waits out the real clean-up period twice; only the minute between marking and forgetting is moved.
TEST(Endurance, ADeadProcessIsRememberedForAMinute) {
  constexpr auto kCleanUpPeriod = std::chrono::seconds(30);
  Child application(kApplication, {"publish", "last_words", "told"});
  ASSERT_TRUE(application.ready());
  const pid_t pid = application.pid();
  application.kill();
  application.wait();
  EXPECT_TRUE(isKnown(pid));

  std::this_thread::sleep_for(kCleanUpPeriod + std::chrono::seconds(2));
  EXPECT_TRUE(isKnown(pid)) << "forgotten when it was found dead";
  timespec now;
  ASSERT_EQ(clock_gettime(CLOCK_REALTIME, &now), 0);
  now.tv_sec += 60;
  ASSERT_EQ(clock_settime(CLOCK_REALTIME, &now), 0);
  EXPECT_TRUE(fixture::eventually([&] { return !isKnown(pid); }, std::chrono::milliseconds(100)));
}

TEST(Endurance, ItsClientsLearnOfTheDaemonsDeathAndFindTheNextOne) {
  class Mourner : public IBinder::DeathRecipient {
   public:
    std::atomic<int> deaths = 0;

   private:
    void binderDied(const android::wp<IBinder>&) override { ++deaths; }
  };
  const sp<IBinder> before = Daemon::binder(IDiagnosticsCollectorService::kServiceName);
  const sp<Mourner> mourner = new Mourner;
  ASSERT_EQ(before->linkToDeath(mourner), android::OK);
  EXPECT_EQ(before->pingBinder(), android::OK);

  Machine::daemon().signal(SIGKILL);
  EXPECT_EQ(Machine::daemon().wait(), SIGKILL) << "it had ended by itself before";
  EXPECT_TRUE(fixture::eventually([&] { return mourner->deaths == 1; }));
  EXPECT_EQ(before->pingBinder(), android::DEAD_OBJECT);

  ASSERT_TRUE(Machine::startDaemon());
  PersistableBundle all;
  EXPECT_TRUE(Daemon::collector()->getAllAvailableApplicationStateData(&all).isOk());
  EXPECT_TRUE(all.empty());
  EXPECT_EQ(mourner->deaths, 1);
}

}  // namespace
