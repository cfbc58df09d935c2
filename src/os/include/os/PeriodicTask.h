#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "base/Mutex.h"

namespace Torv::OS {

// Runs a callback on a thread of its own, again and again, until it is stopped. The period is the pause after
// a run, not a rate: the next wait begins when the callback has returned. The callback runs without any lock
// of this class, and never on two threads at once, unless stop(false) left a run behind.
//
// start() and stop() may be called from any thread except the worker.
class PeriodicTask {
 public:
  // Starts nothing. A period of 0 or less runs the callback without a pause; one of more than a century, such
  // as microseconds::max(), means never.
  PeriodicTask(std::chrono::microseconds period, std::string name, std::function<void()> task);
  // Stops the worker and waits for it, as stop(true) does.
  ~PeriodicTask();
  PeriodicTask(const PeriodicTask&) = delete;
  PeriodicTask& operator=(const PeriodicTask&) = delete;

  // Starts the worker, named as the constructor was told. The first run comes at once if `runImmediately`,
  // else one period later. Does nothing if the task is running.
  //
  // If the thread cannot be created, the standard library throws std::system_error, or ends the process if it
  // was built without exceptions. No lock is held then, and the task is still stopped.
  void start(bool runImmediately);

  // Ends the worker without another run, after the run that is under way. If `join`, waits for that;
  // otherwise returns at once, and whatever the callback uses must outlive that run. Does nothing if the task
  // is not running. The task may be started again.
  void stop(bool join);

 private:
  struct Run;

  static void threadLoop(Run& run);
  bool isRunning() EXCLUDES(mMutex);

  const std::chrono::microseconds mPeriod;
  const std::string mName;
  const std::shared_ptr<const std::function<void()>> mTask;
  Base::Mutex mMutex;
  std::thread mThread GUARDED_BY(mMutex);
  std::shared_ptr<Run> mRun GUARDED_BY(mMutex);  // null while stopped
};

}  // namespace Torv::OS
