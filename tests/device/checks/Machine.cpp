#include "Machine.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <optional>

#include <binder/ProcessState.h>
#include <utils/String8.h>

namespace {

using android::String16;
using android::String8;
using android::os::PersistableBundle;

constexpr char kRuntimeDirectory[] = "/run/torv";
constexpr char kProperties[] =
    "ro.system.build.tags=dev-keys,quillet_diff_number:D1,quillet_version_number:7,pebblor_id:1\n"
    "ro.build.fingerprint=torv/device/emulated:12/1:userdebug/dev-keys\n"
    "persist.device_config.pellux_shared_os_services.oscontrol_enable_diagnostic_collector_service_corr="
    "true\n";

std::optional<fixture::Process> daemonProcess;

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
