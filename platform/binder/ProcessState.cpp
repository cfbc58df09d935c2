#include "parcel/ParcelHeader.h"

#include <binder/ProcessState.h>

#include "Server.h"

namespace android {

sp<ProcessState> ProcessState::self() {
  // Never destroyed, because the server's threads may outlive main().
  static const auto& kSelf = *new sp<ProcessState>(new ProcessState(""));
  return kSelf;
}

// The members belong to the kernel's driver, which does not exist here. Nothing reads them.
ProcessState::ProcessState(const char* /*driver*/) {}

ProcessState::~ProcessState() = default;

void ProcessState::startThreadPool() {
  platform::binder::processServer().startPool();
}

status_t ProcessState::setThreadPoolMaxThreadCount(size_t maxThreads) {
  platform::binder::processServer().setMaxThreads(maxThreads);
  return OK;
}

}  // namespace android
