#include <limits>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Generated.h"
#include "dev/kerno/internal/diagnostics/BnDiagnosticsCollectorService.h"
#include "dev/kerno/internal/diagnostics/BnDiagnosticsNotificationService.h"
#include "dev/kerno/internal/diagnostics/BpDiagnosticsCollectorService.h"
#include "dev/kerno/internal/diagnostics/BpDiagnosticsNotificationService.h"

namespace {

// NOLINTNEXTLINE(google-build-using-namespace): the interfaces under test
using namespace dev::kerno::internal::diagnostics;
namespace generated = dev::kerno::internal::generated_diagnostics;
using android::IBinder;
using android::OK;
using android::Parcel;
using android::sp;
using android::String16;
using android::binder::Status;
using android::os::PersistableBundle;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint32_t kForProcess = 1;
constexpr uint32_t kNotify = 1;

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
    lastName = name;
    return answer("process " + std::to_string(pid), data);
  }
  Status getAllAvailableApplicationStateData(PersistableBundle* data) override { return answer("all", data); }
  Status getSystemContextData(PersistableBundle* data) override { return answer("system", data); }

  Status status;
  std::vector<std::string> calls;
  String16 lastName;

 private:
  Status answer(const std::string& call, PersistableBundle* data) {
    calls.push_back(call);
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
class Remote : public android::BBinder {
 public:
  explicit Remote(sp<IBinder> target) : mTarget(std::move(target)) {}
  uint32_t lastFlags = 0;

 protected:
  android::status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) override {
    lastFlags = flags;
    return mTarget->transact(code, data, reply, flags);
  }

 private:
  const sp<IBinder> mTarget;
};

class InterfacesTest : public testing::Test {
 protected:
  // Sends the interface's token and then `words`; the reply lies in `reply`.
  template <typename Service>
  android::status_t transact(const sp<Service>& service, uint32_t code,
                             const std::vector<int32_t>& words = {}) {
    Parcel request;
    request.writeInterfaceToken(Service::descriptor);
    for (int32_t word : words) request.writeInt32(word);
    reply.setDataSize(0);
    return service->transact(code, request, &reply);
  }

  template <typename Interface>
  void expectCollectorProxyCarriesEveryOutcome() {
    const auto proxy = android::interface_cast<Interface>(sp<IBinder>(new Remote(collector)));
    PersistableBundle data;
    EXPECT_TRUE(proxy->getApplicationStateDataForProcess(12, String16("name"), &data).isOk());
    EXPECT_EQ(data, named("process 12"));
    EXPECT_EQ(collector->lastName, String16("name"));
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
    collector->status = Status::ok();
  }

  sp<FakeCollector> collector = new FakeCollector;
  sp<FakeNotifier> notifier = new FakeNotifier;
  Parcel reply;
};

TEST_F(InterfacesTest, collectorProxiesCarryEveryCallAndItsOutcome) {
  expectCollectorProxyCarriesEveryOutcome<IDiagnosticsCollectorService>();
  expectCollectorProxyCarriesEveryOutcome<generated::IDiagnosticsCollectorService>();
}

TEST_F(InterfacesTest, notificationProxiesSendOneWayAndAnyCodePasses) {
  constexpr int32_t kLowest = std::numeric_limits<int32_t>::min();
  const sp<Remote> remote = new Remote(notifier);
  const auto ours = android::interface_cast<IDiagnosticsNotificationService>(remote);
  const auto theirs = android::interface_cast<generated::IDiagnosticsNotificationService>(remote);
  EXPECT_TRUE(
      ours->notifySystemEvent(IDiagnosticsNotificationEventCode::APPLICATION_CRASHED, named("a")).isOk());
  EXPECT_EQ(remote->lastFlags & IBinder::FLAG_ONEWAY, static_cast<uint32_t>(IBinder::FLAG_ONEWAY));
  EXPECT_EQ(notifier->lastData, named("a"));
  EXPECT_TRUE(theirs->notifySystemEvent(kLowest, named("b")).isOk());
  EXPECT_EQ(notifier->lastData, named("b"));
  EXPECT_THAT(notifier->codes, ElementsAre(0, kLowest));
}

TEST_F(InterfacesTest, theNotifiedMethodsStatusIsNotWritten) {
  EXPECT_EQ(transact(notifier, kNotify, {1, 1, 0}), OK);
  EXPECT_THAT(notifier->codes, ElementsAre(1));
  EXPECT_EQ(reply.dataSize(), 0u);
}

// The integration tests send tokens and codes that are wrong; the recorded parcels hold the replies' bytes.
TEST_F(InterfacesTest, argumentThatCannotBeReadReachesNoMethod) {
  EXPECT_EQ(transact(collector, kForProcess), android::NOT_ENOUGH_DATA);
  const std::vector<std::vector<int32_t>> badNames{{1}, {1, -1}, {1, 1 << 30}};  // missing, null, too long
  for (const auto& words : badNames) {
    EXPECT_EQ(transact(collector, kForProcess, words), OK);
    EXPECT_EQ(reply.readExceptionCode(), Status::EX_NULL_POINTER);
  }
  EXPECT_EQ(transact(notifier, kNotify, {0, 0}), OK) << "a null bundle";
  EXPECT_EQ(reply.readExceptionCode(), Status::EX_NULL_POINTER);
  EXPECT_EQ(transact(notifier, kNotify), android::NOT_ENOUGH_DATA);
  EXPECT_EQ(transact(notifier, kNotify, {0}), android::NOT_ENOUGH_DATA) << "no bundle";
  EXPECT_EQ(transact(notifier, kNotify, {0, 1, 64, 0x21212121, 1}), android::BAD_VALUE) << "not a bundle";
  EXPECT_THAT(collector->calls, IsEmpty());
  EXPECT_THAT(notifier->codes, IsEmpty());
}

}  // namespace
