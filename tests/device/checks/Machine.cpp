#include "Machine.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <mutex>
#include <optional>

#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <utils/String8.h>

namespace {

using android::IBinder;
using android::Parcel;
using android::sp;
using android::String16;
using android::String8;
using android::os::PersistableBundle;

constexpr char kRuntimeDirectory[] = "/run/torv";
constexpr char kProperties[] =
    "ro.system.build.tags=dev-keys,quillet_diff_number:D1,quillet_version_number:7,pebblor_id:1\n"
    "ro.build.fingerprint=torv/device/emulated:12/1:userdebug/dev-keys\n"
    "persist.device_config.pellux_shared_os_services.oscontrol_enable_diagnostic_collector_service_corr="
    "true\n";

// Hears from the service manager of each registration, as android.os.IServiceCallback.
class RegistrationListener : public android::BBinder {
 public:
  RegistrationListener() : mDescriptor("android.os.IServiceCallback") {}

  const String16& getInterfaceDescriptor() const override { return mDescriptor; }

  std::vector<std::string> names() {
    const std::lock_guard lock(mMutex);
    return mNames;
  }

 private:
  android::status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) override {
    if (code != IBinder::FIRST_CALL_TRANSACTION) return BBinder::onTransact(code, data, reply, flags);
    if (!data.enforceInterface(mDescriptor)) return android::BAD_TYPE;
    const std::lock_guard lock(mMutex);
    mNames.emplace_back(String8(data.readString16()).string());
    return android::OK;
  }

  const String16 mDescriptor;
  std::mutex mMutex;
  std::vector<std::string> mNames;
};

sp<RegistrationListener> listener;
std::optional<fixture::Process> daemonProcess;

bool listenFor(const char* name) {
  constexpr uint32_t kRegisterForNotifications = 5;
  Parcel request, reply;
  request.writeInterfaceToken(String16("android.os.IServiceManager"));
  request.writeString16(String16(name));
  request.writeStrongBinder(listener);
  const sp<IBinder> manager = android::ProcessState::self()->getContextObject(nullptr);
  return manager->transact(kRegisterForNotifications, request, &reply) == android::OK &&
         reply.readExceptionCode() == 0;
}

void layOutRuntimeDirectory() {
  mkdir(kRuntimeDirectory, 0755);
  std::ofstream(std::string(kRuntimeDirectory) + "/properties") << kProperties;
  for (const char* name : {"", "/properties"}) {
    if (chown((std::string(kRuntimeDirectory) + name).c_str(), kSystem, kSystem) != 0) perror("chown");
  }
}

void flattenInto(const PersistableBundle& bundle, const std::string& prefix, Flat& out) {
  for (const String16& key : bundle.getStringKeys()) {
    String16 value;
    bundle.getString(key, &value);
    out[prefix + String8(key).string()] = String8(value).string();
  }
  for (const String16& key : bundle.getIntKeys()) {
    int32_t value = 0;
    bundle.getInt(key, &value);
    out[prefix + String8(key).string()] = "int " + std::to_string(value);
  }
  for (const String16& key : bundle.getPersistableBundleKeys()) {
    PersistableBundle nested;
    bundle.getPersistableBundle(key, &nested);
    flattenInto(nested, prefix + String8(key).string() + "/", out);
  }
  if (bundle.empty() && !prefix.empty()) out[prefix] = "";
  const size_t known =
      bundle.getStringKeys().size() + bundle.getIntKeys().size() + bundle.getPersistableBundleKeys().size();
  if (bundle.size() != known) out[prefix + "?"] = "an entry of another type";
}

}  // namespace

bool Machine::start() {
  layOutRuntimeDirectory();
  android::ProcessState::self()->startThreadPool();
  listener = new RegistrationListener;
  if (!listenFor(IDiagnosticsCollectorService::kServiceName) ||
      !listenFor(IDiagnosticsNotificationService::kServiceName)) {
    std::printf("The service manager takes no listeners\n");
    return false;
  }
  if (startDaemon()) return true;
  std::printf("The daemon does not answer\n");
  return false;
}

void Machine::stop() {
  daemonProcess.reset();
}

fixture::Process& Machine::daemon() {
  return *daemonProcess;
}

bool Machine::startDaemon() {
  fixture::ProcessOptions options;
  options.uid = kSystem;
  options.output = kDaemonLog;
  daemonProcess.emplace(std::vector<std::string>{"/bin/diagnostics_collector_service"}, options);
  return fixture::eventually(&Daemon::answers);
}

std::vector<std::string> Machine::registrations() {
  return listener->names();
}

Flat flatten(const PersistableBundle& bundle) {
  Flat flat;
  flattenInto(bundle, "", flat);
  return flat;
}

Flat below(const Flat& flat, const std::string& prefix) {
  Flat part;
  for (auto entry = flat.lower_bound(prefix); entry != flat.end() && entry->first.rfind(prefix, 0) == 0;
       ++entry) {
    part[entry->first.substr(prefix.size())] = entry->second;
  }
  return part;
}
