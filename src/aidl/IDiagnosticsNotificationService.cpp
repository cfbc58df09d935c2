#include "dev/kerno/internal/diagnostics/IDiagnosticsNotificationService.h"

#include "dev/kerno/internal/diagnostics/BnDiagnosticsNotificationService.h"
#include "dev/kerno/internal/diagnostics/BpDiagnosticsNotificationService.h"

namespace dev::kerno::internal::diagnostics {

using ::android::IBinder;
using ::android::OK;
using ::android::Parcel;
using ::android::sp;
using ::android::status_t;
using ::android::binder::Status;
using ::android::os::PersistableBundle;

IMPLEMENT_META_INTERFACE(DiagnosticsNotificationService,
                         "dev.kerno.internal.diagnostics.IDiagnosticsNotificationService")

namespace {

status_t transactNotify(IDiagnosticsNotificationService& service, const Parcel& data) {
  int32_t code = 0;
  PersistableBundle details;
  if (const status_t read = data.readInt32(&code); read != OK) return read;
  if (const status_t read = data.readParcelable(&details); read != OK) return read;
  service.notifySystemEvent(static_cast<IDiagnosticsNotificationEventCode>(code), details);
  return OK;
}

}  // namespace

status_t BnDiagnosticsNotificationService::onTransact(uint32_t code, const Parcel& data, Parcel* reply,
                                                      uint32_t flags) {
  if (code != kNotifySystemEvent) return ::android::BBinder::onTransact(code, data, reply, flags);
  if (!data.checkInterface(this)) return ::android::BAD_TYPE;
  const status_t result = transactNotify(*this, data);
  // There is a reply parcel only if the caller did not ask for a one-way call.
  if (result != ::android::UNEXPECTED_NULL || reply == nullptr) return result;
  return Status::fromExceptionCode(Status::EX_NULL_POINTER).writeToParcel(reply);
}

BpDiagnosticsNotificationService::BpDiagnosticsNotificationService(const sp<IBinder>& remote)
    : BpInterface<IDiagnosticsNotificationService>(remote) {}

Status BpDiagnosticsNotificationService::notifySystemEvent(IDiagnosticsNotificationEventCode code,
                                                           const PersistableBundle& data) {
  Parcel request;
  status_t written = request.writeInterfaceToken(getInterfaceDescriptor());
  if (written == OK) written = request.writeInt32(static_cast<int32_t>(code));
  if (written == OK) written = request.writeParcelable(data);
  if (written != OK) return Status::fromStatusT(written);
  Parcel reply;
  return Status::fromStatusT(remote()->transact(kNotifySystemEvent, request, &reply, IBinder::FLAG_ONEWAY));
}

}  // namespace dev::kerno::internal::diagnostics
