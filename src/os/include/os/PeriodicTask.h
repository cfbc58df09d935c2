#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "base/Mutex.h"

namespace Torv::OS {

// Runs a callback on a thread of its own, again and again, until it is stopped. The period is the pause
// after a run, not a rate: the next wait begins when the callback has returned. The callback runs with no
// lock of this class held, and on no two threads at once unless stop(false) left a run behind.
//
// start() and stop() may come from any thread but the worker itself. Destruction stops and joins.
class PeriodicTask {
 public:
  PeriodicTask(std::chrono::microseconds period, std::string name, std::function<void()> task);
  ~PeriodicTask();
  PeriodicTask(const PeriodicTask&) = delete;
  PeriodicTask& operator=(const PeriodicTask&) = delete;

  // Starts the worker, named as given to the constructor. The first run comes at once with `runImmediately`,
  // else one period later. Does nothing where the task is running.
  void start(bool runImmediately);

  // Ends the worker without another run; a run under way is finished first. With `join` that end is waited
  // for; without, the worker is left to end by itself, and what the callback uses must outlive that.
  // Does nothing where the task is not running.
  void stop(bool join);

 private:
  struct Run;

  static void threadLoop(Run& run);

  const std::chrono::microseconds mPeriod;
  const std::string mName;
  const std::shared_ptr<const std::function<void()>> mTask;
  Base::Mutex mMutex;
  std::thread mThread GUARDED_BY(mMutex);
  std::shared_ptr<Run> mRun GUARDED_BY(mMutex);  // empty while stopped
};

}  // namespace Torv::OS
