#include <functional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "GeneratedProxies.h"
#include "Wire.h"
#include "dev/kerno/internal/diagnostics/BnDiagnosticsCollectorService.h"
#include "dev/kerno/internal/diagnostics/BpDiagnosticsCollectorService.h"

namespace {

using android::IBinder;
using android::OK;
using android::Parcel;
using android::sp;
using android::status_t;
using android::String16;
using android::binder::Status;
using android::os::PersistableBundle;
using dev::kerno::internal::diagnostics::BnDiagnosticsCollectorService;
using dev::kerno::internal::diagnostics::IDiagnosticsCollectorService;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint32_t kForProcess = 1;
constexpr uint32_t kForAll = 2;
constexpr uint32_t kForSystem = 3;

// Answers every call with `status` and a bundle that says which call it was.
class FakeService : public BnDiagnosticsCollectorService {
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
    data->putString(String16("call"), String16(call.c_str()));
    return status;
  }
};

String16 callOf(const PersistableBundle& bundle) {
  String16 call;
  bundle.getString(String16("call"), &call);
  return call;
}

class CollectorInterfaceTest : public testing::Test {
 protected:
  // Sends a request that `fill` writes after the interface's token.
  status_t transact(
      uint32_t code, const std::function<void(Parcel&)>& fill = [](Parcel&) {}) {
    request.setDataSize(0);
    request.writeInterfaceToken(IDiagnosticsCollectorService::descriptor);
    fill(request);
    return service->transact(code, request, &reply);
  }

  sp<FakeService> service = new FakeService;
  Parcel request;
  Parcel reply;
};

// The bytes are the interface: clients of other builds and languages read them.
TEST_F(CollectorInterfaceTest, ReplyIsTheStatusThenTheBundleAsAParcelable) {
  const auto fill = [](Parcel& parcel) {
    parcel.writeInt32(-7);
    parcel.writeString16(String16("reporter"));
  };
  ASSERT_EQ(transact(kForProcess, fill), OK);
  EXPECT_THAT(service->calls, ElementsAre("process -7"));
  EXPECT_EQ(service->lastName, String16("reporter"));
  Parcel expected;
  expected.writeInt32(0);
  expected.writeInt32(1);
  PersistableBundle bundle;
  bundle.putString(String16("call"), String16("process -7"));
  bundle.writeToParcel(&expected);
  EXPECT_EQ(wire::bytes(reply), wire::bytes(expected));
}

TEST_F(CollectorInterfaceTest, RequestWithoutTheInterfacesTokenCallsNothing) {
  for (uint32_t code : {kForProcess, kForAll, kForSystem}) {
    Parcel foreign;
    foreign.writeInterfaceToken(String16("dev.kerno.internal.diagnostics.IDiagnosticsNotificationService"));
    foreign.writeInt32(1);
    foreign.writeString16(String16("x"));
    EXPECT_EQ(service->transact(code, foreign, &reply), android::BAD_TYPE) << code;
    Parcel empty;
    EXPECT_EQ(service->transact(code, empty, &reply), android::BAD_TYPE) << code;
  }
  EXPECT_THAT(service->calls, IsEmpty());
}

TEST_F(CollectorInterfaceTest, OtherCodesGoToTheBaseBinder) {
  for (uint32_t code : {0u, 4u, static_cast<uint32_t>(IBinder::LAST_CALL_TRANSACTION), 0xffffffffu}) {
    EXPECT_EQ(transact(code), android::UNKNOWN_TRANSACTION) << code;
  }
  EXPECT_EQ(service->getInterfaceDescriptor(), IDiagnosticsCollectorService::descriptor);
  ASSERT_EQ(service->transact(IBinder::INTERFACE_TRANSACTION, request, &reply), OK);
  EXPECT_EQ(reply.readString16(), String16("dev.kerno.internal.diagnostics.IDiagnosticsCollectorService"));
  EXPECT_THAT(service->calls, IsEmpty());
}

TEST_F(CollectorInterfaceTest, ArgumentThatCannotBeReadEndsTheTransaction) {
  EXPECT_EQ(transact(kForProcess), android::NOT_ENOUGH_DATA);

  const std::vector<std::function<void(Parcel&)>> badNames = {
      [](Parcel&) {},                                     // missing
      [](Parcel& parcel) { parcel.writeInt32(-1); },      // null
      [](Parcel& parcel) { parcel.writeInt32(1 << 30); }  // longer than the parcel
  };
  for (const auto& writeName : badNames) {
    Parcel answer;
    request.setDataSize(0);
    request.writeInterfaceToken(IDiagnosticsCollectorService::descriptor);
    request.writeInt32(1);
    writeName(request);
    EXPECT_EQ(service->transact(kForProcess, request, &answer), OK);
    EXPECT_EQ(wire::bytes(answer), wire::statusBytes(Status::EX_NULL_POINTER));
  }
  EXPECT_THAT(service->calls, IsEmpty());
}

TEST_F(CollectorInterfaceTest, BytesAfterTheArgumentsAreIgnored) {
  EXPECT_EQ(
      transact(kForAll, [](Parcel& parcel) { parcel.writeString16(String16(std::string(9, 'x').c_str())); }),
      OK);
  EXPECT_THAT(service->calls, ElementsAre("all"));
}

TEST_F(CollectorInterfaceTest, AnExceptionIsAnsweredWithoutABundle) {
  service->status = Status::fromExceptionCode(Status::EX_ILLEGAL_STATE);
  for (uint32_t code : {kForAll, kForSystem}) {
    Parcel answer;
    request.setDataSize(0);
    request.writeInterfaceToken(IDiagnosticsCollectorService::descriptor);
    EXPECT_EQ(service->transact(code, request, &answer), OK);
    EXPECT_EQ(wire::bytes(answer), wire::statusBytes(Status::EX_ILLEGAL_STATE));
  }
  // A status that holds a transport error is no reply at all but the transaction's result.
  service->status = Status::fromStatusT(android::TIMED_OUT);
  EXPECT_EQ(transact(kForAll), android::TIMED_OUT);
}

// Ours and the AIDL compiler's, over the same stub.
TEST_F(CollectorInterfaceTest, ProxiesCarryEveryCallAndItsOutcome) {
  const sp<IBinder> remote = new wire::Remote(service);
  const sp<IDiagnosticsCollectorService> ours = android::interface_cast<IDiagnosticsCollectorService>(remote);
  ASSERT_NE(ours.get(), static_cast<IDiagnosticsCollectorService*>(service.get()));
  const auto callAll = [&](auto forProcess, auto forAll, auto forSystem) {
    PersistableBundle process;
    PersistableBundle all;
    PersistableBundle system;
    EXPECT_TRUE(forProcess(12, String16("name"), &process).isOk());
    EXPECT_TRUE(forAll(&all).isOk());
    EXPECT_TRUE(forSystem(&system).isOk());
    EXPECT_EQ(callOf(process), String16("process 12"));
    EXPECT_EQ(service->lastName, String16("name"));
    EXPECT_EQ(callOf(all), String16("all"));
    EXPECT_EQ(callOf(system), String16("system"));
    service->status = Status::fromServiceSpecificError(9, "busy");
    PersistableBundle untouched;
    const Status failed = forAll(&untouched);
    EXPECT_EQ(failed.serviceSpecificErrorCode(), 9);
    EXPECT_TRUE(untouched.empty());
    service->status = Status::fromStatusT(android::TIMED_OUT);
    EXPECT_EQ(forSystem(&untouched).transactionError(), android::TIMED_OUT);
    service->status = Status::ok();
  };
  callAll([&](int pid, const String16& name,
              PersistableBundle* data) { return ours->getApplicationStateDataForProcess(pid, name, data); },
          [&](PersistableBundle* data) { return ours->getAllAvailableApplicationStateData(data); },
          [&](PersistableBundle* data) { return ours->getSystemContextData(data); });
  callAll(
      [&](int pid, const String16& name, PersistableBundle* data) {
        return generated::getApplicationStateDataForProcess(remote, pid, name, data);
      },
      [&](PersistableBundle* data) { return generated::getAllAvailableApplicationStateData(remote, data); },
      [&](PersistableBundle* data) { return generated::getSystemContextData(remote, data); });
}

}  // namespace
