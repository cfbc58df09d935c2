#include <gmock/gmock.h>

#include "Generated.h"
#include "dev/kerno/internal/diagnostics/BnDiagnosticsCollectorService.h"
#include "dev/kerno/internal/diagnostics/BnDiagnosticsNotificationService.h"
#include "dev/kerno/internal/diagnostics/BpDiagnosticsCollectorService.h"
#include "dev/kerno/internal/diagnostics/BpDiagnosticsNotificationService.h"
#include "support/Bundles.h"

namespace {

// NOLINTNEXTLINE(google-build-using-namespace): the interfaces under test
using namespace dev::kerno::internal::diagnostics;
namespace generated = dev::kerno::internal::generated_diagnostics;
using android::IBinder, android::Parcel, android::sp, android::String16;
using android::binder::Status;
using android::os::PersistableBundle;

// Answers every call with `status` and a bundle that says which call it was.
class FakeCollector : public BnDiagnosticsCollectorService {
 public:
  Status getApplicationStateDataForProcess(int32_t pid, const String16& name,
                                           PersistableBundle* data) override {
    return answer("process " + std::to_string(pid) + String8(name).string(), data);
  }
  Status getAllAvailableApplicationStateData(PersistableBundle* data) override { return answer("all", data); }
  Status getSystemContextData(PersistableBundle* data) override { return answer("system", data); }

  Status status;

 private:
  using String8 = android::String8;

  Status answer(const std::string& call, PersistableBundle* data) {
    *data = test::strings({{"call", call.c_str()}});
    return status;
  }
};

struct FakeNotifier : BnDiagnosticsNotificationService {
  Status notifySystemEvent(IDiagnosticsNotificationEventCode code, const PersistableBundle& data) override {
    codes.push_back(static_cast<int32_t>(code));
    lastData = data;
    return Status::fromExceptionCode(Status::EX_ILLEGAL_STATE);
  }

  std::vector<int32_t> codes;
  PersistableBundle lastData;
};

// Hides that its target is local, so that interface_cast gives a proxy and every call goes through parcels.
struct Remote : android::BBinder {
  explicit Remote(sp<IBinder> hidden) : target(std::move(hidden)) {}
  android::status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) override {
    lastFlags = flags;
    return target->transact(code, data, reply, flags);
  }

  const sp<IBinder> target;
  uint32_t lastFlags = 0;
};

// Of our own interface, and of the one that the AIDL compiler makes of the contract.
template <typename Interface>
void expectCollectorProxyCarriesEveryOutcome() {
  const sp<FakeCollector> collector = new FakeCollector;
  const auto proxy = android::interface_cast<Interface>(sp<IBinder>(new Remote(collector)));
  PersistableBundle data;
  EXPECT_TRUE(proxy->getApplicationStateDataForProcess(12, String16("name"), &data).isOk());
  EXPECT_EQ(data, test::strings({{"call", "process 12name"}}));
  EXPECT_TRUE(proxy->getAllAvailableApplicationStateData(&data).isOk());
  EXPECT_EQ(data, test::strings({{"call", "all"}}));
  EXPECT_TRUE(proxy->getSystemContextData(&data).isOk());
  EXPECT_EQ(data, test::strings({{"call", "system"}}));
  collector->status = Status::fromServiceSpecificError(9, "busy");
  PersistableBundle untouched;
  EXPECT_EQ(proxy->getAllAvailableApplicationStateData(&untouched).serviceSpecificErrorCode(), 9);
  EXPECT_TRUE(untouched.empty());
  collector->status = Status::fromStatusT(android::TIMED_OUT);
  EXPECT_EQ(proxy->getSystemContextData(&untouched).transactionError(), android::TIMED_OUT);
}

TEST(InterfacesTest, collectorProxiesCarryEveryCallAndItsOutcome) {
  expectCollectorProxyCarriesEveryOutcome<IDiagnosticsCollectorService>();
  expectCollectorProxyCarriesEveryOutcome<generated::IDiagnosticsCollectorService>();
}

TEST(InterfacesTest, notificationProxiesSendOneWayAndAnyCodePasses) {
  const sp<FakeNotifier> notifier = new FakeNotifier;
  const sp<Remote> remote = new Remote(notifier);
  const auto ours = android::interface_cast<IDiagnosticsNotificationService>(remote);
  const auto theirs = android::interface_cast<generated::IDiagnosticsNotificationService>(remote);
  EXPECT_TRUE(ours->notifySystemEvent(IDiagnosticsNotificationEventCode::APPLICATION_CRASHED,
                                      test::strings({{"call", "a"}}))
                  .isOk());
  EXPECT_EQ(remote->lastFlags & IBinder::FLAG_ONEWAY, static_cast<uint32_t>(IBinder::FLAG_ONEWAY));
  EXPECT_EQ(notifier->lastData, test::strings({{"call", "a"}}));
  EXPECT_TRUE(theirs->notifySystemEvent(INT32_MIN, test::strings({{"call", "b"}})).isOk());
  EXPECT_EQ(notifier->lastData, test::strings({{"call", "b"}}));
  EXPECT_THAT(notifier->codes, testing::ElementsAre(0, INT32_MIN));
}

}  // namespace
