#pragma once

#include <memory>

#include "base/Mutex.h"
#include "dev/kerno/internal/diagnostics/BnDiagnosticsCollectorService.h"
#include "service/DiagnosticsCollectorServiceHandler.h"

namespace Torv::OS::Diagnostics {

// The binder object behind "DiagnosticsCollectorService": hands every call on to the handler.
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

  // Serves a transaction. Only kWholeTablesAtOnce requests for the states of all processes are served at a
  // time, because each takes up to ten times its reply in memory until the reply is written; others wait
  // their turn.
  android::status_t onTransact(uint32_t code, const android::Parcel& data, android::Parcel* reply,
                               uint32_t flags) override;

  // Starts and stops the handler's periodic work: the clean-up, then the polling.
  void onCreate();
  void onDestroy();

 private:
  DiagnosticsCollectorServiceHandler& handler() const;
  void beginWholeTable();
  void endWholeTable();

  static constexpr int kWholeTablesAtOnce = 2;

  const std::shared_ptr<DiagnosticsCollectorServiceHandler> mHandler;
  Base::Mutex mMutex;
  Base::ConditionVariable mWholeTableDone;
  int mWholeTables GUARDED_BY(mMutex) = 0;  // being served
};

}  // namespace Torv::OS::Diagnostics
