#include "os/PeriodicTask.h"

#include <utility>

#include "osutils/Thread.h"

namespace Torv::OS {

// What one start() and its worker share. Each start has its own, so that a worker left behind by stop(false)
// sees its own end whatever start() and the destructor do meanwhile.
struct PeriodicTask::Run {
  const std::chrono::microseconds period;
  const std::shared_ptr<const std::function<void()>> task;
  Base::Mutex mutex;
  Base::ConditionVariable wakeUp;
  bool running GUARDED_BY(mutex) = true;
  bool runNow GUARDED_BY(mutex);

  Run(std::chrono::microseconds pause, std::shared_ptr<const std::function<void()>> work, bool immediately)
      : period(pause), task(std::move(work)), runNow(immediately) {}
};

PeriodicTask::PeriodicTask(std::chrono::microseconds period, std::string name, std::function<void()> task)
    : mPeriod(period),
      mName(std::move(name)),
      mTask(std::make_shared<const std::function<void()>>(std::move(task))) {}

PeriodicTask::~PeriodicTask() {
  stop(true);
}

void PeriodicTask::start(bool runImmediately) {
  Base::LockGuard lock(mMutex);
  if (mRun != nullptr) return;
  auto run = std::make_shared<Run>(mPeriod, mTask, runImmediately);
  // The worker begins by taking this lock, so it is named before it does anything.
  Base::LockGuard hold(run->mutex);
  mThread = std::thread([run] { threadLoop(*run); });
  Thread::setName(mThread, mName);
  mRun = std::move(run);
}

void PeriodicTask::stop(bool join) {
  std::thread worker;
  {
    Base::LockGuard lock(mMutex);
    if (mRun == nullptr) return;
    const std::shared_ptr<Run> run = std::move(mRun);
    worker = std::move(mThread);
    Base::LockGuard end(run->mutex);
    run->running = false;
    run->wakeUp.notify_one();
  }
  if (join) {
    worker.join();
  } else {
    worker.detach();
  }
}

void PeriodicTask::threadLoop(Run& run) {
  run.mutex.lock();
  while (true) {
    const bool due = std::exchange(run.runNow, true);
    if (due) {
      run.runNow = false;
      if (!run.running) break;
      run.mutex.unlock();
      (*run.task)();
      run.mutex.lock();
    } else {
      if (!run.running) {
        run.runNow = false;
        break;
      }
      run.wakeUp.wait_for(run.mutex, run.period);  // whatever ends the wait, a run follows while running
    }
  }
  run.mutex.unlock();
}

}  // namespace Torv::OS
