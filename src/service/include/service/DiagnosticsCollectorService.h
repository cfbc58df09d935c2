#pragma once

#include <memory>

#include "dev/kerno/internal/diagnostics/BnDiagnosticsCollectorService.h"
#include "service/DiagnosticsCollectorServiceHandler.h"

namespace Torv::OS::Diagnostics {

// The binder object behind "DiagnosticsCollectorService". It forwards every call to the handler.
//
// The handler may be empty, which start-up does if a manager could not be built. The first call that needs it
// then ends the process with a fatal log line.
//
// Thread-safe: called on any thread of the binder pool.
class DiagnosticsCollectorService : public dev::kerno::internal::diagnostics::BnDiagnosticsCollectorService {
 public:
  explicit DiagnosticsCollectorService(std::shared_ptr<DiagnosticsCollectorServiceHandler> handler);

  android::binder::Status getApplicationStateDataForProcess(int32_t pid, const android::String16& name,
                                                            android::os::PersistableBundle* data) override;
  android::binder::Status getAllAvailableApplicationStateData(android::os::PersistableBundle* data) override;
  android::binder::Status getSystemContextData(android::os::PersistableBundle* data) override;

  // Starts and stops the handler's periodic work: the clean-up, then the polling.
  void onCreate();
  void onDestroy();

 private:
  DiagnosticsCollectorServiceHandler& handler() const;

  const std::shared_ptr<DiagnosticsCollectorServiceHandler> mHandler;
};

}  // namespace Torv::OS::Diagnostics
