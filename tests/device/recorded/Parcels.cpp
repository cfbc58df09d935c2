#include "recorded/Parcels.h"

#include <dev/kerno/internal/diagnostics/BnDiagnosticsCollectorService.h>
#include <dev/kerno/internal/diagnostics/BpDiagnosticsCollectorService.h>
#include <dev/kerno/internal/diagnostics/BpDiagnosticsNotificationService.h>

#include <android-base/stringprintf.h>
#include "support/Bundles.h"

namespace {

using android::IBinder;
using android::Parcel;
using android::sp;
using android::String16;
using android::binder::Status;
using android::os::PersistableBundle;
using test::strings, test::with;
using namespace dev::kerno::internal::diagnostics;

using Parcels = std::vector<std::pair<std::string, std::string>>;

std::string hexOf(const Parcel& parcel) {
  std::string text;
  for (size_t i = 0; i < parcel.dataSize(); ++i) {
    android::base::StringAppendF(&text, "%02x", parcel.data()[i]);
  }
  return text;
}

// Stands in for a remote service and keeps the last request.
struct RequestCatcher : android::BBinder {
  android::status_t onTransact(uint32_t, const Parcel& data, Parcel*, uint32_t) override {
    hex = hexOf(data);
    return android::OK;
  }

  std::string hex;
};

// Answers every request with one status and one bundle.
struct FixedCollector : BnDiagnosticsCollectorService {
  FixedCollector(const Status& status, const PersistableBundle& bundle) : status(status), bundle(bundle) {}
  Status getApplicationStateDataForProcess(int32_t, const String16&, PersistableBundle* data) override {
    return getSystemContextData(data);
  }
  Status getAllAvailableApplicationStateData(PersistableBundle* data) override {
    return getSystemContextData(data);
  }
  Status getSystemContextData(PersistableBundle* data) override {
    *data = bundle;
    return status;
  }

  const Status status;
  const PersistableBundle bundle;
};

constexpr char kWide[] = "\u00e9\u65e5\U0001f680";  // two bytes, three bytes and a surrogate pair

PersistableBundle processBundle(int32_t pid) {
  return test::process(pid, strings({{"screen", "home"}, {"odd", "abc"}, {"empty", ""}, {"wide", kWide}}));
}

PersistableBundle systemBundle() {
  const auto ids = strings({{"service_session_id", "{\"dt_ms\":5,\"v\":\"S\"}"}});
  const auto space = with(strings({{"GlobalNamespace", "telemetry"}}), "GlobalStateData", ids);
  const auto context = strings({{"build_tags", "dev-keys"}});
  return with(with({}, "SystemContextData", context), "GlobalStateData", with({}, "telemetry", space));
}

PersistableBundle everyType() {
  PersistableBundle bundle = strings({{"string", kWide}, {"emptyString", ""}});
  bundle.putBoolean(String16("true"), true);
  bundle.putBoolean(String16("false"), false);
  bundle.putInt(String16("int"), -2147483647 - 1);
  bundle.putLong(String16("long"), INT64_MIN);
  bundle.putDouble(String16("double"), -1.5);
  bundle.putBooleanVector(String16("booleans"), {true, false, true});
  bundle.putIntVector(String16("ints"), {1, -1});
  bundle.putLongVector(String16("longs"), {INT64_MAX});
  bundle.putDoubleVector(String16("doubles"), {0.25, -0.0});
  bundle.putStringVector(String16("strings"), {String16("a"), String16(), String16(kWide)});
  bundle.putStringVector(String16("noStrings"), {});
  bundle.putPersistableBundle(String16("emptyBundle"), {});
  return bundle;
}

void packRequests(Parcels& out) {
  sp<RequestCatcher> catcher = new RequestCatcher;
  sp<IDiagnosticsCollectorService> collector = new BpDiagnosticsCollectorService(catcher);
  sp<IDiagnosticsNotificationService> notifier = new BpDiagnosticsNotificationService(catcher);
  const auto keep = [&](const char* name, const Status&) { out.emplace_back(name, catcher->hex); };
  using Code = IDiagnosticsNotificationEventCode;
  PersistableBundle ignored;
  keep("request-process", collector->getApplicationStateDataForProcess(1234, String16("odd"), &ignored));
  keep("request-process-empty-name", collector->getApplicationStateDataForProcess(-1, String16(), &ignored));
  keep("request-process-wide-name",
       collector->getApplicationStateDataForProcess(INT32_MAX, String16(kWide), &ignored));
  keep("request-all", collector->getAllAvailableApplicationStateData(&ignored));
  keep("request-system", collector->getSystemContextData(&ignored));
  keep("request-notify-0-empty", notifier->notifySystemEvent(Code{0}, {}));
  keep("request-notify-every-type", notifier->notifySystemEvent(Code{-1}, everyType()));
  keep("request-notify-1-nested", notifier->notifySystemEvent(Code{1}, with({}, "inner", everyType())));
}

void packReply(Parcels& out, const std::string& name, uint32_t code, const Status& status,
               const PersistableBundle& answer, bool nullName = false) {
  sp<IBinder> stub = new FixedCollector(status, answer);
  Parcel request, reply;
  request.writeInterfaceToken(IDiagnosticsCollectorService::descriptor);
  if (code == IDiagnosticsCollectorService::kGetApplicationStateDataForProcess) {
    request.writeInt32(1);
    nullName ? request.writeInt32(-1) : request.writeString16(String16());
  }
  stub->transact(code, request, &reply);
  out.emplace_back(name, hexOf(reply));
}

void packReplies(Parcels& out) {
  constexpr auto kProcess = IDiagnosticsCollectorService::kGetApplicationStateDataForProcess;
  constexpr auto kAll = IDiagnosticsCollectorService::kGetAllAvailableApplicationStateData;
  constexpr auto kSystem = IDiagnosticsCollectorService::kGetSystemContextData;
  packReply(out, "reply-process", kProcess, Status::ok(), processBundle(1234));
  packReply(out, "reply-process-unknown", kProcess, Status::ok(), {});
  packReply(out, "reply-all", kAll, Status::ok(),
            with(with({}, "1234", processBundle(1234)), "-1", processBundle(-1)));
  packReply(out, "reply-system", kSystem, Status::ok(), systemBundle());
  packReply(out, "reply-interface", IBinder::INTERFACE_TRANSACTION, Status::ok(), {});
  for (const int32_t exception : {-1, -2, -3, -4, -5, -6, -7, -9, -55}) {
    packReply(out, "reply-exception" + std::to_string(exception), kProcess,
              Status::fromExceptionCode(exception), {});
  }
  packReply(out, "reply-exception-with-message", kAll, Status::fromExceptionCode(-4, "missing \u65e5"), {});
  packReply(out, "reply-service-specific", kAll, Status::fromServiceSpecificError(7, "x"), {});
  // A failed transaction has no reply to speak of: the status goes back in its place.
  packReply(out, "reply-failed-transaction", kAll, Status::fromStatusT(android::FAILED_TRANSACTION), {});
  // A null name becomes an exception of the stub's own.
  packReply(out, "reply-null-name", kProcess, Status::ok(), processBundle(1), true);
}

}  // namespace

std::vector<std::pair<std::string, std::string>> packParcels() {
  Parcels parcels;
  packRequests(parcels);
  packReplies(parcels);
  return parcels;
}
