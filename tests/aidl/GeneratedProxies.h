// Calls through the proxies that the AIDL compiler makes of android/aidl/.
#pragma once

#include <cstdint>
#include <limits>
#include <memory>
#include <optional>

#include <binder/IBinder.h>
#include <binder/PersistableBundle.h>
#include <binder/Status.h>

namespace generated {

android::binder::Status getApplicationStateDataForProcess(const android::sp<android::IBinder>& service,
                                                          int32_t pid, const android::String16& name,
                                                          android::os::PersistableBundle* data);
android::binder::Status getAllAvailableApplicationStateData(const android::sp<android::IBinder>& service,
                                                            android::os::PersistableBundle* data);
android::binder::Status getSystemContextData(const android::sp<android::IBinder>& service,
                                             android::os::PersistableBundle* data);
android::binder::Status notifySystemEvent(const android::sp<android::IBinder>& service, int32_t code,
                                          const android::os::PersistableBundle& data);

}  // namespace generated
