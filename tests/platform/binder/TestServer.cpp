// The other process of the tests: publishes a TestService under the name given and serves until it is
// stopped.
#include "TestService.h"

#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  const auto manager = android::defaultServiceManager();
  if (manager->addService(android::String16(argv[1]), new test::TestService) != android::OK) return 1;
  android::ProcessState::self()->startThreadPool();
  android::IPCThreadState::self()->joinThreadPool();
}
