// The binder service "DiagnosticsCollectorService", which crash and error reporters ask when they build a
// report. The contract in AIDL is android/aidl/…/IDiagnosticsCollectorService.aidl; stub and proxy follow the
// conventions of libbinder's AIDL compiler, so that clients generated from it fit.
#pragma once

#include "dev/kerno/internal/diagnostics/BinderHeaders.h"

namespace dev::kerno::internal::diagnostics {

// All three calls are two-way and may be made from any thread. Each fills `data` with a tree of bundles,
// whose layouts are in docs/interfaces.md. If the returned status has an exception, `data` is not filled.
class IDiagnosticsCollectorService : public ::android::IInterface {
 public:
  DECLARE_META_INTERFACE(DiagnosticsCollectorService)

  // The name in the service manager.
  static constexpr char kServiceName[] = "DiagnosticsCollectorService";

  // The codes of the transactions, in the order of the methods in AIDL. They are part of the wire format.
  enum Transaction : uint32_t {
    kGetApplicationStateDataForProcess = ::android::IBinder::FIRST_CALL_TRANSACTION,
    kGetAllAvailableApplicationStateData,
    kGetSystemContextData,
  };

  // Gets the newest value of every state key of one process. If nothing is known of the process, the status
  // is OK and `data` is empty. `name` is not used.
  virtual ::android::binder::Status getApplicationStateDataForProcess(
      int32_t pid, const ::android::String16& name, ::android::os::PersistableBundle* data) = 0;

  // Gets the same for every process with states, including processes that died in the last minute.
  virtual ::android::binder::Status getAllAvailableApplicationStateData(
      ::android::os::PersistableBundle* data) = 0;

  // Gets the system's identification, the histories of its load, and the states that belong to no process.
  virtual ::android::binder::Status getSystemContextData(::android::os::PersistableBundle* data) = 0;
};

}  // namespace dev::kerno::internal::diagnostics
