// The other process of the tests: publishes a TestService and the service of an interface that aidl-cpp
// compiled, under the names given, and serves until it is stopped.
#include <memory>
#include <vector>

#include "TestService.h"

#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <test/exchange/BnExchange.h>

namespace {

using android::String16;
using android::binder::Status;
using android::os::PersistableBundle;

class Exchange final : public test::exchange::BnExchange {
  Status join(const String16& first, const std::unique_ptr<String16>& second, const std::string& third,
              String16* result) override {
    *result = first + String16("|") + (second ? *second : String16("null")) + String16("|") +
              String16(third.c_str());
    return Status::ok();
  }
  Status wrap(const PersistableBundle& bundle, std::vector<bool>* flags, PersistableBundle* result) override {
    *flags = {true, false, true};
    result->putPersistableBundle(String16("wrapped"), bundle);
    return Status::ok();
  }
  Status fail(int32_t error) override {
    return error == 0 ? Status::fromExceptionCode(Status::EX_ILLEGAL_STATE, "asked to")
                      : Status::fromServiceSpecificError(error, "asked to");
  }
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) return 2;
  const auto manager = android::defaultServiceManager();
  if (manager->addService(String16(argv[1]), new test::TestService) != android::OK) return 1;
  if (argc > 2 && manager->addService(String16(argv[2]), new Exchange) != android::OK) return 1;
  android::ProcessState::self()->startThreadPool();
  android::IPCThreadState::self()->joinThreadPool();
}
