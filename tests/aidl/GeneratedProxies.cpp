#include "GeneratedProxies.h"

#include <binder/IInterface.h>
#include <dev/kerno/internal/diagnostics/IDiagnosticsCollectorService.h>
#include <dev/kerno/internal/diagnostics/IDiagnosticsNotificationService.h>

namespace generated {

using android::IBinder;
using android::interface_cast;
using android::sp;
using android::String16;
using android::binder::Status;
using android::os::PersistableBundle;
using dev::kerno::internal::diagnostics::IDiagnosticsCollectorService;
using dev::kerno::internal::diagnostics::IDiagnosticsNotificationService;

Status getApplicationStateDataForProcess(const sp<IBinder>& service, int32_t pid, const String16& name,
                                         PersistableBundle* data) {
  return interface_cast<IDiagnosticsCollectorService>(service)->getApplicationStateDataForProcess(pid, name,
                                                                                                  data);
}

Status getAllAvailableApplicationStateData(const sp<IBinder>& service, PersistableBundle* data) {
  return interface_cast<IDiagnosticsCollectorService>(service)->getAllAvailableApplicationStateData(data);
}

Status getSystemContextData(const sp<IBinder>& service, PersistableBundle* data) {
  return interface_cast<IDiagnosticsCollectorService>(service)->getSystemContextData(data);
}

Status notifySystemEvent(const sp<IBinder>& service, int32_t code, const PersistableBundle& data) {
  return interface_cast<IDiagnosticsNotificationService>(service)->notifySystemEvent(code, data);
}

}  // namespace generated
