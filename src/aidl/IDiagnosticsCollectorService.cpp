#include "dev/kerno/internal/diagnostics/IDiagnosticsCollectorService.h"

#include "dev/kerno/internal/diagnostics/BnDiagnosticsCollectorService.h"
#include "dev/kerno/internal/diagnostics/BpDiagnosticsCollectorService.h"

namespace dev::kerno::internal::diagnostics {

using ::android::IBinder;
using ::android::OK;
using ::android::Parcel;
using ::android::sp;
using ::android::status_t;
using ::android::String16;
using ::android::binder::Status;
using ::android::os::PersistableBundle;

IMPLEMENT_META_INTERFACE(DiagnosticsCollectorService,
                         "dev.kerno.internal.diagnostics.IDiagnosticsCollectorService")

namespace {

// Calls `query(PersistableBundle*)`, which returns a Status, and writes what comes of it into `reply`.
template <typename Query>
status_t answer(const Query& query, Parcel* reply) {
  PersistableBundle data;
  const Status status = query(&data);
  const status_t written = status.writeToParcel(reply);
  if (written != OK || !status.isOk()) return written;
  return reply->writeParcelable(data);
}

status_t transactForProcess(IDiagnosticsCollectorService& service, const Parcel& data, Parcel* reply) {
  int32_t pid = 0;
  String16 name;
  if (const status_t read = data.readInt32(&pid); read != OK) return read;
  if (const status_t read = data.readString16(&name); read != OK) return read;
  const auto query = [&](PersistableBundle* out) {
    return service.getApplicationStateDataForProcess(pid, name, out);
  };
  return answer(query, reply);
}

// Sends the request and reads the bundle of its reply into `data`.
Status call(IBinder* remote, IDiagnosticsCollectorService::Transaction code, const Parcel& request,
            PersistableBundle* data) {
  Parcel reply;
  if (const status_t sent = remote->transact(code, request, &reply); sent != OK) {
    return Status::fromStatusT(sent);
  }
  Status status;
  if (const status_t read = status.readFromParcel(reply); read != OK) return Status::fromStatusT(read);
  if (!status.isOk()) return status;
  return Status::fromStatusT(reply.readParcelable(data));
}

Status callWithoutArguments(IBinder* remote, IDiagnosticsCollectorService::Transaction code,
                            PersistableBundle* data) {
  Parcel request;
  const status_t written = request.writeInterfaceToken(IDiagnosticsCollectorService::descriptor);
  if (written != OK) return Status::fromStatusT(written);
  return call(remote, code, request, data);
}

}  // namespace

status_t BnDiagnosticsCollectorService::onTransact(uint32_t code, const Parcel& data, Parcel* reply,
                                                   uint32_t flags) {
  if (code < kGetApplicationStateDataForProcess || code > kGetSystemContextData) {
    return ::android::BBinder::onTransact(code, data, reply, flags);
  }
  if (!data.checkInterface(this)) return ::android::BAD_TYPE;
  status_t result = OK;
  switch (code) {
    case kGetApplicationStateDataForProcess:
      result = transactForProcess(*this, data, reply);
      break;
    case kGetAllAvailableApplicationStateData:
      result = answer([this](auto* out) { return getAllAvailableApplicationStateData(out); }, reply);
      break;
    default:
      result = answer([this](auto* out) { return getSystemContextData(out); }, reply);
      break;
  }
  // A string that is missing, truncated or null is the caller's fault, so the caller gets an exception.
  if (result != ::android::UNEXPECTED_NULL) return result;
  return Status::fromExceptionCode(Status::EX_NULL_POINTER).writeToParcel(reply);
}

BpDiagnosticsCollectorService::BpDiagnosticsCollectorService(const sp<IBinder>& remote)
    : BpInterface<IDiagnosticsCollectorService>(remote) {}

Status BpDiagnosticsCollectorService::getApplicationStateDataForProcess(int32_t pid, const String16& name,
                                                                        PersistableBundle* data) {
  Parcel request;
  status_t written = request.writeInterfaceToken(getInterfaceDescriptor());
  if (written == OK) written = request.writeInt32(pid);
  if (written == OK) written = request.writeString16(name);
  if (written != OK) return Status::fromStatusT(written);
  return call(remote(), kGetApplicationStateDataForProcess, request, data);
}

Status BpDiagnosticsCollectorService::getAllAvailableApplicationStateData(PersistableBundle* data) {
  return callWithoutArguments(remote(), kGetAllAvailableApplicationStateData, data);
}

Status BpDiagnosticsCollectorService::getSystemContextData(PersistableBundle* data) {
  return callWithoutArguments(remote(), kGetSystemContextData, data);
}

}  // namespace dev::kerno::internal::diagnostics
