#include "Threads.h"

#include <memory>
#include <utility>

#include <pthread.h>

namespace platform::binder {

using android::base::Error;
using android::base::Result;
using Torv::Base::LockGuard;

Result<void> Threads::start(const char* name, std::function<void()> body) {
  using Task = std::function<void()>;
  auto task = std::make_unique<Task>([this, name, body = std::move(body)]() mutable {
    pthread_setname_np(pthread_self(), name);
    body();
    body = nullptr;  // before the owner may go, because the body may refer to it
    const LockGuard guard(mMutex);
    --mCount;
    mEnded.notify_all();
  });
  const auto run = [](void* started) -> void* {
    (*std::unique_ptr<Task>(static_cast<Task*>(started)))();
    return nullptr;
  };
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

}  // namespace platform::binder
