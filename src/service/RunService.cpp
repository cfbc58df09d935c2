#include "service/RunService.h"

#include <memory>
#include <vector>

#include <android/log.h>
#include <osutils/ServiceHost.h>

#include "LogTags.h"
#include "service/DiagnosticsCollectorService.h"
#include "service/DiagnosticsNotificationService.h"

namespace Torv::OS::Diagnostics {

int runService() {
  std::shared_ptr<DiagnosticsCollectorServiceHandler> handler =
      DiagnosticsCollectorServiceHandler::makeDefaultServiceHandler();

  android::sp<DiagnosticsCollectorService> collectorService = new DiagnosticsCollectorService(handler);
  if (collectorService == nullptr) {
    __android_log_print(ANDROID_LOG_ERROR, kStartUpTag, "Failed to create service implementation\n");
  }
  android::sp<DiagnosticsNotificationService> notificationService =
      new DiagnosticsNotificationService(std::vector<std::shared_ptr<Observer>>{handler});

  ServiceHost host({
      {DiagnosticsCollectorService::kServiceName, android::sp<android::IBinder>(collectorService)},
      {DiagnosticsNotificationService::kServiceName, android::sp<android::IBinder>(notificationService)},
  });

  collectorService->onCreate();

  __android_log_print(ANDROID_LOG_INFO, kStartUpTag,
                      "The Diagnostics Collector Service is starting threadpool\n");
  host.startThreadPool();
  __android_log_print(ANDROID_LOG_INFO, kStartUpTag, "The Diagnostics Collector Service is exited\n");

  collectorService->onDestroy();
  notificationService.clear();
  collectorService.clear();
  handler.reset();
  return 0;
}

}  // namespace Torv::OS::Diagnostics
