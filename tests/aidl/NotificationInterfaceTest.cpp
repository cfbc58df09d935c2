#include <limits>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "GeneratedProxies.h"
#include "Wire.h"
#include "dev/kerno/internal/diagnostics/BnDiagnosticsNotificationService.h"
#include "dev/kerno/internal/diagnostics/BpDiagnosticsNotificationService.h"

namespace {

using android::IBinder;
using android::OK;
using android::Parcel;
using android::sp;
using android::String16;
using android::binder::Status;
using android::os::PersistableBundle;
using dev::kerno::internal::diagnostics::BnDiagnosticsNotificationService;
using dev::kerno::internal::diagnostics::IDiagnosticsNotificationEventCode;
using dev::kerno::internal::diagnostics::IDiagnosticsNotificationService;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint32_t kNotify = 1;

class FakeService : public BnDiagnosticsNotificationService {
 public:
  Status notifySystemEvent(IDiagnosticsNotificationEventCode code, const PersistableBundle& data) override {
    codes.push_back(static_cast<int32_t>(code));
    lastData = data;
    return Status::fromExceptionCode(Status::EX_ILLEGAL_STATE);
  }

  std::vector<int32_t> codes;
  PersistableBundle lastData;
};

class NotificationInterfaceTest : public testing::Test {
 protected:
  sp<FakeService> service = new FakeService;
  Parcel request;
  Parcel reply;
};

TEST_F(NotificationInterfaceTest, ProxiesSendOneWayAndAnyCodePasses) {
  const sp<wire::Remote> remote = new wire::Remote(service);
  const auto ours = android::interface_cast<IDiagnosticsNotificationService>(remote);
  PersistableBundle details;
  details.putInt(String16("signal"), 11);
  constexpr int32_t kLowest = std::numeric_limits<int32_t>::min();
  EXPECT_TRUE(
      ours->notifySystemEvent(IDiagnosticsNotificationEventCode::APPLICATION_CRASHED, details).isOk());
  EXPECT_EQ(remote->lastFlags() & IBinder::FLAG_ONEWAY, static_cast<uint32_t>(IBinder::FLAG_ONEWAY));
  EXPECT_EQ(service->lastData, details);
  EXPECT_TRUE(generated::notifySystemEvent(remote, kLowest, details).isOk());
  EXPECT_THAT(service->codes, ElementsAre(0, kLowest));
}

TEST_F(NotificationInterfaceTest, TheMethodsStatusIsNotWritten) {
  request.writeInterfaceToken(IDiagnosticsNotificationService::descriptor);
  request.writeInt32(1);
  request.writeParcelable(PersistableBundle());
  EXPECT_EQ(service->transact(kNotify, request, &reply), OK);
  EXPECT_THAT(service->codes, ElementsAre(1));
  EXPECT_EQ(reply.dataSize(), 0u);
}

TEST_F(NotificationInterfaceTest, BadRequestsReachNoMethod) {
  request.writeInterfaceToken(String16("dev.kerno.internal.diagnostics.IDiagnosticsCollectorService"));
  EXPECT_EQ(service->transact(kNotify, request, &reply), android::BAD_TYPE);

  request.setDataSize(0);
  request.writeInterfaceToken(IDiagnosticsNotificationService::descriptor);
  EXPECT_EQ(service->transact(kNotify, request, &reply), android::NOT_ENOUGH_DATA);
  request.writeInt32(0);
  EXPECT_EQ(service->transact(kNotify, request, &reply), android::NOT_ENOUGH_DATA) << "no bundle";
  request.writeInt32(1);
  request.writeInt32(64);
  request.writeInt32(0x21212121);
  request.writeInt32(1);
  EXPECT_EQ(service->transact(kNotify, request, &reply), android::BAD_VALUE) << "a bundle that is none";
  for (uint32_t code : {0u, 2u, 0xffffffffu}) {
    EXPECT_EQ(service->transact(code, request, &reply), android::UNKNOWN_TRANSACTION) << code;
  }
  EXPECT_EQ(reply.dataSize(), 0u);
  EXPECT_THAT(service->codes, IsEmpty());
}

TEST_F(NotificationInterfaceTest, ANullBundleIsToldAsANullPointer) {
  request.writeInterfaceToken(IDiagnosticsNotificationService::descriptor);
  request.writeInt32(0);
  request.writeInt32(0);  // the marker of a null parcelable
  EXPECT_EQ(service->transact(kNotify, request, &reply), OK);
  EXPECT_EQ(wire::bytes(reply), wire::statusBytes(Status::EX_NULL_POINTER));
  EXPECT_THAT(service->codes, IsEmpty());
}

}  // namespace
