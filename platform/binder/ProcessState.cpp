#include "parcel/ParcelHeader.h"

#include <algorithm>
#include <thread>

#include <malloc.h>
#include <pthread.h>
#include <unistd.h>

#include <binder/ProcessState.h>

#include "Server.h"

namespace android {

sp<ProcessState> ProcessState::self() {
  // Never destroyed: threads of the pool may outlive main().
  static const auto& kSelf = *new sp<ProcessState>(new ProcessState(""));
  return kSelf;
}

sp<ProcessState> ProcessState::selfOrNull() {
  return self();
}

ProcessState::ProcessState(const char* driver)
    : mDriverName(driver),
      mDriverFD(-1),
      mVMStart(nullptr),
      mThreadCountLock(PTHREAD_MUTEX_INITIALIZER),
      mThreadCountDecrement(PTHREAD_COND_INITIALIZER),
      mExecutingThreadsCount(0),
      mMaxThreads(0),
      mStarvationStartTimeMs(0),
      mBinderContextCheckFunc(nullptr),
      mBinderContextUserData(nullptr),
      mThreadPoolStarted(false),
      mThreadPoolSeq(1),
      mCallRestriction(CallRestriction::NONE) {}

ProcessState::~ProcessState() = default;

void ProcessState::startThreadPool() {
  // By default each thread of the pool would come to have a heap of its own, with the holes of whatever it
  // has answered once. More heaps than can be in use at a time make nothing faster.
  mallopt(M_ARENA_MAX, static_cast<int>(std::max(2U, std::thread::hardware_concurrency())));
  platform::binder::processServer().startPool();
}

status_t ProcessState::setThreadPoolMaxThreadCount(size_t maxThreads) {
  platform::binder::processServer().setMaxThreads(maxThreads);
  return OK;
}

void ProcessState::giveThreadPoolName() {
  pthread_setname_np(pthread_self(), makeBinderThreadName().string());
}

String8 ProcessState::makeBinderThreadName() {
  const int32_t sequence = __atomic_fetch_add(&mThreadPoolSeq, 1, __ATOMIC_RELAXED);
  String8 name = String8::format("Binder:%d_%X", getpid(), sequence);
  // The kernel's names hold 15 characters.
  return String8(name.string(), std::min<size_t>(name.bytes(), 15));
}

}  // namespace android
