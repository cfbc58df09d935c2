// A service by somebody who has the platform's headers and this library, and nothing else of the project.
#include <limits>
#include <memory>
#include <optional>

#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>

class Greeter : public android::BBinder {
  android::status_t onTransact(uint32_t code, const android::Parcel& data, android::Parcel* reply,
                               uint32_t flags) override {
    if (code != FIRST_CALL_TRANSACTION) return BBinder::onTransact(code, data, reply, flags);
    return reply->writeString16(android::String16("hello ") + data.readString16());
  }
};

int main() {
  android::defaultServiceManager()->addService(android::String16("third.party/greeter"), new Greeter);
  android::ProcessState::self()->startThreadPool();
  android::IPCThreadState::self()->joinThreadPool();
}
