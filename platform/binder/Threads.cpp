#include "Threads.h"

#include <memory>
#include <utility>

#include <pthread.h>

namespace platform::binder {

using android::base::Error;
using android::base::Result;
using Torv::Base::LockGuard;

struct Threads::Task {
  Threads& owner;
  const char* name;
  std::function<void()> body;
};

Result<void> Threads::start(const char* name, std::function<void()> body) {
  auto task = std::make_unique<Task>(Task{*this, name, std::move(body)});
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, kStackSize);
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  const LockGuard guard(mMutex);
  pthread_t thread{};
  const int error = pthread_create(&thread, &attributes, run, task.get());
  pthread_attr_destroy(&attributes);
  if (error != 0) return Error(error) << "cannot start the thread " << name;
  static_cast<void>(task.release());  // the thread owns it now
  ++mCount;
  return {};
}

void Threads::awaitAtMost(size_t count, SteadyClock::time_point deadline) {
  const LockGuard guard(mMutex);
  while (mCount > count) {
    if (mEnded.wait_for(mMutex, deadline - SteadyClock::now()) == std::cv_status::timeout) return;
  }
}

void* Threads::run(void* task) {
  std::unique_ptr<Task> mine(static_cast<Task*>(task));
  Threads& owner = mine->owner;
  pthread_setname_np(pthread_self(), mine->name);
  mine->body();
  mine.reset();  // before the owner may go, because the body may refer to it
  const LockGuard guard(owner.mMutex);
  --owner.mCount;
  owner.mEnded.notify_all();
  return nullptr;
}

}  // namespace platform::binder
