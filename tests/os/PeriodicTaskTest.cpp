#include "os/PeriodicTask.h"

#include <atomic>
#include <future>
#include <system_error>

#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

namespace Torv::OS {
namespace {

using std::chrono::hours, std::chrono::milliseconds, std::chrono::steady_clock;

TEST(PeriodicTaskTest, runsAtOnceOnlyIfAskedToAndNeverAgainIfNoClockReachesThePeriod) {
  std::atomic<int> runs = 0;
  std::promise<std::string> name;
  std::promise<void> second;
  PeriodicTask task(std::chrono::microseconds::max(), "ApplicationStateManagerCleanupThread", [&] {
    char text[32] = {};
    pthread_getname_np(pthread_self(), text, sizeof(text));
    if (++runs == 1) name.set_value(text);
    if (runs == 2) second.set_value();
  });
  task.start(false);
  task.stop(true);  // would never end if the stop did not wake the worker
  EXPECT_EQ(runs, 0);
  task.start(true);
  EXPECT_EQ(name.get_future().get(), "ApplicationStat");  // the kernel keeps 15 characters
  // A wait whose end has overflowed would be over at once, and the second run would come with it.
  EXPECT_EQ(second.get_future().wait_for(milliseconds(20)), std::future_status::timeout);
}

TEST(PeriodicTaskTest, pausesForThePeriodAfterEachRunOfItsOneWorker) {
  constexpr milliseconds kPeriod(5);
  std::vector<steady_clock::duration> pauses;  // two workers would race for it, which TSan reports
  steady_clock::time_point ended = steady_clock::now();
  std::promise<void> done;
  PeriodicTask task(kPeriod, "task", [&] {
    pauses.push_back(steady_clock::now() - ended);
    if (pauses.size() == 4) done.set_value();
    ended = steady_clock::now();
  });
  for (int i = 0; i < 5; i++) task.start(false);
  done.get_future().wait();
  for (int i = 0; i < 2; i++) task.stop(true);
  for (const auto pause : pauses) EXPECT_GE(pause, kPeriod);
}

TEST(PeriodicTaskTest, leavesARunBehindThatEndsByItself) {
  std::atomic<int> runs = 0;
  auto worker = std::make_shared<int>();  // held by every worker that could run the callback
  std::promise<void> entered, leave, second;
  {
    PeriodicTask task(milliseconds(1), "task", [&, worker] {
      const int run = ++runs;
      if (run == 2) second.set_value();
      if (run != 1) return;
      entered.set_value();
      leave.get_future().wait();
    });
    task.start(true);
    entered.get_future().wait();
    task.stop(false);  // returns although the run cannot end
    task.start(true);  // a second worker, beside the one left behind
    second.get_future().wait();
    task.stop(true);
  }
  const int before = runs;
  leave.set_value();  // by now the task object is gone
  while (worker.use_count() > 1) std::this_thread::yield();
  EXPECT_EQ(runs, before);
}

// Runs in a process of its own, because the failure passes through code without exceptions, which leaks what
// it had allocated.
[[noreturn]] void startWithoutAndWithRoomForAThread() {
  std::promise<void> ran;
  PeriodicTask task(hours(1), "task", [&] { ran.set_value(); });
  pthread_attr_t usual, huge;
  pthread_getattr_default_np(&usual);
  pthread_attr_init(&huge);
  pthread_attr_setstacksize(&huge, size_t{1} << 60);
  pthread_setattr_default_np(&huge);
  try {
    task.start(true);
    _exit(1);
  } catch (const std::system_error&) {
    pthread_setattr_default_np(&usual);
  }
  task.stop(true);
  task.start(true);  // would wait for ever for a lock that the failed start had kept
  ran.get_future().wait();
  _exit(0);
}

TEST(PeriodicTaskTest, aStartThatFailsLeavesTheTaskStoppedAndUsable) {
  EXPECT_EXIT(startWithoutAndWithRoomForAThread(), testing::ExitedWithCode(0), "");
}

TEST(PeriodicTaskTest, takesStartsAndStopsFromSeveralThreads) {
  auto runs = std::make_shared<std::atomic<int>>(0);  // may outlive the test in a worker left behind
  {
    PeriodicTask task(std::chrono::microseconds(50), "task", [runs] { ++*runs; });
    const auto startAndStop = [&task](int thread) {
      for (int i = 0; i < 200; i++) {
        task.start(i % 2 == 0);
        task.stop((i + thread) % 3 != 0);
      }
    };
    std::vector<std::future<void>> threads;
    for (int i = 0; i < 4; i++) threads.push_back(std::async(std::launch::async, startAndStop, i));
    for (auto& thread : threads) thread.get();
    task.start(true);  // and is destroyed while running
  }
  while (runs.use_count() > 1) std::this_thread::yield();  // every worker ends, or the test times out
}

}  // namespace
}  // namespace Torv::OS
