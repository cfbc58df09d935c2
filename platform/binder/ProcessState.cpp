#include "parcel/ParcelHeader.h"

#include <binder/ProcessState.h>

#include "Server.h"

namespace android {

sp<ProcessState> ProcessState::self() {
  // Never destroyed, because the server's threads may outlive main().
  static const auto& kSelf = *new sp<ProcessState>(new ProcessState(""));
  return kSelf;
}

// The members belong to the kernel's driver, which does not exist here.
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
  platform::binder::processServer().startPool();
}

status_t ProcessState::setThreadPoolMaxThreadCount(size_t maxThreads) {
  platform::binder::processServer().setMaxThreads(maxThreads);
  return OK;
}

}  // namespace android
