// The binder service "DiagnosticsCollectorService": what crash and error reporters ask at the moment they
// build a report. The contract in AIDL is android/aidl/…/IDiagnosticsCollectorService.aidl; stub and proxy
// follow the conventions of libbinder's AIDL compiler, so that clients generated from it fit.
#pragma once

#include "dev/kerno/internal/diagnostics/BinderHeaders.h"

namespace dev::kerno::internal::diagnostics {

// All three calls are two-way and may be made from any thread. Each fills `data` with a tree of bundles whose
// layouts docs/interfaces.md gives; an exception in the status means that `data` is not filled.
class IDiagnosticsCollectorService : public ::android::IInterface {
 public:
  DECLARE_META_INTERFACE(DiagnosticsCollectorService)

  // What the service manager knows it by.
  static constexpr char kServiceName[] = "DiagnosticsCollectorService";

  enum Transaction : uint32_t {
    kGetApplicationStateDataForProcess = ::android::IBinder::FIRST_CALL_TRANSACTION,
    kGetAllAvailableApplicationStateData,
    kGetSystemContextData,
  };

  // The newest value of every state key of one process. A process of which nothing is known leaves `data`
  // empty and is no error. `name` is carried and not used.
  virtual ::android::binder::Status getApplicationStateDataForProcess(
      int32_t pid, const ::android::String16& name, ::android::os::PersistableBundle* data) = 0;

  // The same for every process of which anything is known, the lately dead among them.
  virtual ::android::binder::Status getAllAvailableApplicationStateData(
      ::android::os::PersistableBundle* data) = 0;

  // Which system this is, how it has fared of late, and the states that belong to no process.
  virtual ::android::binder::Status getSystemContextData(::android::os::PersistableBundle* data) = 0;
};

}  // namespace dev::kerno::internal::diagnostics
