#include "os/PeriodicTask.h"

#include <atomic>
#include <future>
#include <vector>

#include <gtest/gtest.h>
#include <pthread.h>

namespace Torv::OS {
namespace {

using std::chrono::hours;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

// A door that tasks wait at until it is opened.
class Gate {
 public:
  void open() { mOpen.set_value(); }
  void pass() const { mPassed.wait(); }

 private:
  std::promise<void> mOpen;
  std::shared_future<void> mPassed = mOpen.get_future().share();
};

TEST(PeriodicTask, RunsAtOnceOnlyWhenAskedTo) {
  std::atomic<int> runs = 0;
  Gate ran;
  PeriodicTask task(hours(1), "task", [&] {
    if (++runs == 1) ran.open();
  });
  task.start(false);
  task.stop(true);
  EXPECT_EQ(runs, 0);
  task.start(true);
  ran.pass();
  task.stop(true);  // would take an hour if the stop did not wake the worker
  EXPECT_EQ(runs, 1);
}

TEST(PeriodicTask, PausesForThePeriodAfterEachRunOfItsOneWorker) {
  constexpr milliseconds kPeriod(5);
  std::vector<steady_clock::duration> pauses;  // which two workers would be seen to race for
  steady_clock::time_point ended = steady_clock::now();
  Gate done;
  PeriodicTask task(kPeriod, "task", [&] {
    pauses.push_back(steady_clock::now() - ended);
    if (pauses.size() == 4) done.open();
    ended = steady_clock::now();
  });
  for (int i = 0; i < 5; i++) task.start(false);
  done.pass();
  for (int i = 0; i < 2; i++) task.stop(true);
  for (const auto pause : pauses) EXPECT_GE(pause, kPeriod);
}

TEST(PeriodicTask, NamesItsThreadBeforeTheFirstRun) {
  std::promise<std::string> name;
  PeriodicTask task(hours(1), "ApplicationStateManagerCleanupThread", [&] {
    char text[32] = {};
    pthread_getname_np(pthread_self(), text, sizeof(text));
    name.set_value(text);
  });
  task.start(true);
  EXPECT_EQ(name.get_future().get(), "ApplicationStat");  // what the kernel has room for
}

TEST(PeriodicTask, LeavesARunBehindThatEndsByItself) {
  std::atomic<int> runs = 0;
  Gate entered;
  Gate leave;
  std::promise<void> left;
  std::promise<void> second;
  {
    PeriodicTask task(milliseconds(1), "task", [&] {
      const int run = ++runs;
      if (run == 2) second.set_value();
      if (run != 1) return;
      entered.open();
      leave.pass();
      left.set_value();
    });
    task.start(true);
    entered.pass();
    task.stop(false);  // returns although the run cannot end
    task.start(true);  // a worker of its own, beside the one left behind
    second.get_future().wait();
    task.stop(true);
  }
  const int before = runs;
  leave.open();  // by now the task object is gone
  left.get_future().wait();
  EXPECT_EQ(runs, before);
}

TEST(PeriodicTask, TakesStartsAndStopsFromSeveralThreads) {
  auto runs = std::make_shared<std::atomic<int>>(0);  // may outlive the test in a worker left behind
  {
    PeriodicTask task(std::chrono::microseconds(50), "task", [runs] { ++*runs; });
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; thread++) {
      threads.emplace_back([&task, thread] {
        for (int i = 0; i < 200; i++) {
          task.start(i % 2 == 0);
          task.stop((i + thread) % 3 != 0);
        }
      });
    }
    for (std::thread& thread : threads) thread.join();
    task.start(true);  // and is destroyed while running
  }
  const auto deadline = steady_clock::now() + std::chrono::seconds(60);
  while (runs.use_count() > 1 && steady_clock::now() < deadline) std::this_thread::yield();
  EXPECT_EQ(runs.use_count(), 1) << "a worker has not ended";
}

}  // namespace
}  // namespace Torv::OS
