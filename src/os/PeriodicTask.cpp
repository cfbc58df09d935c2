#include "os/PeriodicTask.h"

#include <utility>

#include "osutils/Thread.h"

namespace Torv::OS {

// What one start() and its worker share. Each start has its own, because a worker left behind by stop(false)
// must see that it is stopped although the object may have been started again or destroyed.
struct PeriodicTask::Run {
  const std::chrono::microseconds period;
  const std::shared_ptr<const std::function<void()>> task;
  const bool runImmediately;
  Base::Mutex mutex;
  Base::ConditionVariable wakeUp;
  bool running GUARDED_BY(mutex) = true;

  Run(std::chrono::microseconds pause, std::shared_ptr<const std::function<void()>> work, bool immediately)
      : period(pause), task(std::move(work)), runImmediately(immediately) {}
};

PeriodicTask::PeriodicTask(std::chrono::microseconds period, std::string name, std::function<void()> task)
    : mPeriod(period),
      mName(std::move(name)),
      mTask(std::make_shared<const std::function<void()>>(std::move(task))) {}

PeriodicTask::~PeriodicTask() {
  stop(true);
}

void PeriodicTask::start(bool runImmediately) {
  if (isRunning()) return;
  auto run = std::make_shared<Run>(mPeriod, mTask, runImmediately);
  std::thread surplus;  // if another start() came first
  {
    // The worker begins by taking this lock, so it does nothing before it is named and belongs to the object.
    const Base::LockGuard hold(run->mutex);
    // mMutex is not held: if no thread can be created, this call does not return, and no code here could
    // unlock it.
    std::thread worker([run] { threadLoop(*run); });
    Thread::setName(worker, mName);
    const Base::LockGuard lock(mMutex);
    if (mRun == nullptr) {
      mRun = run;
      mThread = std::move(worker);
    } else {
      run->running = false;
      surplus = std::move(worker);
    }
  }
  if (surplus.joinable()) surplus.join();
}

void PeriodicTask::stop(bool join) {
  std::shared_ptr<Run> run;
  std::thread worker;
  {
    const Base::LockGuard lock(mMutex);
    if (mRun == nullptr) return;
    run = std::move(mRun);
    worker = std::move(mThread);
  }
  {
    const Base::LockGuard lock(run->mutex);
    run->running = false;
    run->wakeUp.notify_one();
  }
  if (join) {
    worker.join();
  } else {
    worker.detach();
  }
}

bool PeriodicTask::isRunning() {
  const Base::LockGuard lock(mMutex);
  return mRun != nullptr;
}

void PeriodicTask::threadLoop(Run& run) {
  run.mutex.lock();
  for (bool due = run.runImmediately; run.running; due = !due) {
    if (due) {
      run.mutex.unlock();
      (*run.task)();
      run.mutex.lock();
    } else {
      run.wakeUp.wait_for(run.mutex, run.period);  // a run follows unless the task was stopped
    }
  }
  run.mutex.unlock();
}

}  // namespace Torv::OS
