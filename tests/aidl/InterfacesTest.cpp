#include <limits>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "Generated.h"
#include "dev/kerno/internal/diagnostics/BnDiagnosticsCollectorService.h"
#include "dev/kerno/internal/diagnostics/BnDiagnosticsNotificationService.h"
#include "dev/kerno/internal/diagnostics/BpDiagnosticsCollectorService.h"
#include "dev/kerno/internal/diagnostics/BpDiagnosticsNotificationService.h"

namespace {

// NOLINTNEXTLINE(google-build-using-namespace): the interfaces under test
using namespace dev::kerno::internal::diagnostics;
namespace generated = dev::kerno::internal::generated_diagnostics;
using android::IBinder, android::OK, android::Parcel, android::sp, android::String16;
using android::binder::Status;
using android::os::PersistableBundle;

PersistableBundle named(const std::string& call) {
  PersistableBundle bundle;
  bundle.putString(String16("call"), String16(call.c_str()));
  return bundle;
}

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
  int calls = 0;

 private:
  using String8 = android::String8;

  Status answer(const std::string& call, PersistableBundle* data) {
    ++calls;
    *data = named(call);
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
  EXPECT_EQ(data, named("process 12name"));
  EXPECT_TRUE(proxy->getAllAvailableApplicationStateData(&data).isOk());
  EXPECT_EQ(data, named("all"));
  EXPECT_TRUE(proxy->getSystemContextData(&data).isOk());
  EXPECT_EQ(data, named("system"));
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
  constexpr int32_t kLowest = std::numeric_limits<int32_t>::min();
  const sp<FakeNotifier> notifier = new FakeNotifier;
  const sp<Remote> remote = new Remote(notifier);
  const auto ours = android::interface_cast<IDiagnosticsNotificationService>(remote);
  const auto theirs = android::interface_cast<generated::IDiagnosticsNotificationService>(remote);
  EXPECT_TRUE(
      ours->notifySystemEvent(IDiagnosticsNotificationEventCode::APPLICATION_CRASHED, named("a")).isOk());
  EXPECT_EQ(remote->lastFlags & IBinder::FLAG_ONEWAY, static_cast<uint32_t>(IBinder::FLAG_ONEWAY));
  EXPECT_EQ(notifier->lastData, named("a"));
  EXPECT_TRUE(theirs->notifySystemEvent(kLowest, named("b")).isOk());
  EXPECT_EQ(notifier->lastData, named("b"));
  EXPECT_THAT(notifier->codes, testing::ElementsAre(0, kLowest));
}

using Answer = std::pair<android::status_t, int32_t>;

// Sends the interface's token and then `words` as transaction 1. Returns the transport's status and, if that
// is OK, the exception in the reply; 0 stands for an empty reply too.
template <typename Service>
Answer transact(const sp<Service>& service, const std::vector<int32_t>& words) {
  Parcel request;
  Parcel reply;
  request.writeInterfaceToken(Service::descriptor);
  for (int32_t word : words) request.writeInt32(word);
  const android::status_t status = service->transact(1, request, &reply);
  return {status, status == OK && reply.dataSize() > 0 ? reply.readExceptionCode() : 0};
}

// The integration tests send tokens and codes that are wrong; the recorded parcels hold the replies' bytes.
TEST(InterfacesTest, argumentThatCannotBeReadReachesNoMethod) {
  const sp<FakeCollector> collector = new FakeCollector;
  const sp<FakeNotifier> notifier = new FakeNotifier;
  const Answer noData{android::NOT_ENOUGH_DATA, 0};
  const Answer null{OK, Status::EX_NULL_POINTER};
  EXPECT_EQ(transact(collector, {}), noData);
  EXPECT_EQ(transact(collector, {1}), null) << "no name";
  EXPECT_EQ(transact(collector, {1, -1}), null) << "a null name";
  EXPECT_EQ(transact(collector, {1, 1 << 30}), null) << "a name that is too long";
  EXPECT_EQ(transact(notifier, {0, 0}), null) << "a null bundle";
  EXPECT_EQ(transact(notifier, {}), noData);
  EXPECT_EQ(transact(notifier, {0}), noData) << "no bundle";
  EXPECT_EQ(transact(notifier, {0, 1, 64, 0x21212121, 1}).first, android::BAD_VALUE) << "not a bundle";
  EXPECT_EQ(collector->calls, 0);
  EXPECT_THAT(notifier->codes, testing::IsEmpty());
  EXPECT_EQ(transact(notifier, {1, 1, 0}), Answer(OK, 0)) << "the method's status is not written";
  EXPECT_THAT(notifier->codes, testing::ElementsAre(1));
}

}  // namespace
