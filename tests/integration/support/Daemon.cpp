#include "fixture/Daemon.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include <unistd.h>

#include <binder/IServiceManager.h>
#include <statsd/StatsEventWriter.h>

namespace fixture {
namespace {

namespace fs = std::filesystem;
using android::IBinder;
using android::sp;
using android::String16;

constexpr char kCorrelationOn[] =
    "persist.device_config.pellux_shared_os_services.oscontrol_enable_diagnostic_collector_service_corr="
    "true\n";

// A device root with this machine's kernel behind it.
void writeDeviceRoot(const test::TempDir& dir) {
  dir.write("device/system_ext/etc/torv_crashreporter.conf", "{}\n");
  fs::create_directory_symlink("/proc", dir.path("device/proc"));
}

}  // namespace

Daemon::Daemon()
    : mRuntime("TORV_RUNTIME_DIR", mDir.path("runtime")),
      mDeviceRoot("TORV_DEVICE_ROOT", mDir.path("device")) {
  fs::permissions(mDir.path(), fs::perms(0755));
  fs::create_directory(runtime());
  writeDeviceRoot(mDir);
  setProperties(kCorrelationOn);
}

Daemon::~Daemon() {
  const std::string text = log();
  for (const char* report : {"Sanitizer:", "runtime error:"}) {
    if (text.find(report) == std::string::npos) continue;
    fprintf(stderr, "The service has a fault. Its log:\n%s\n", text.c_str());
    abort();
  }
}

void Daemon::setProperties(const std::string& text) const {
  mDir.write("runtime/properties", text);
  for (const std::string& path : {runtime(), runtime("properties")}) {
    if (chown(path.c_str(), serviceUid(), -1) != 0) throw std::runtime_error("chown " + path);
  }
}

void Daemon::launch(const std::string& program) {
  ProcessOptions options;
  options.output = mDir.path("service.log");
  mProcess = std::make_unique<Process>(std::vector<std::string>{program}, options);
}

void Daemon::start(const std::string& program) {
  launch(program);
  if (!eventually([this] { return answers() || !mProcess->running(); }) || !mProcess->running()) {
    throw std::runtime_error("the service does not answer; its log:\n" + log());
  }
}

bool Daemon::answers() {
  for (const char* name :
       {IDiagnosticsCollectorService::kServiceName, IDiagnosticsNotificationService::kServiceName}) {
    const sp<IBinder> service = binder(name);
    if (service == nullptr || service->pingBinder() != android::OK) return false;
  }
  return true;
}

int Daemon::stop(int signal) {
  mProcess->signal(signal);
  return mProcess->wait().value_or(-1);
}

size_t Daemon::countInLog(const std::string& text) const {
  return countOf(log(), text);
}

bool Daemon::logs(const std::string& text) const {
  return eventually([&] { return countInLog(text) > 0; });
}

sp<IBinder> Daemon::binder(const char* name) {
  return android::defaultServiceManager()->checkService(String16(name));
}

sp<IDiagnosticsCollectorService> Daemon::collector() {
  return android::interface_cast<IDiagnosticsCollectorService>(
      binder(IDiagnosticsCollectorService::kServiceName));
}

sp<IDiagnosticsNotificationService> Daemon::notifier() {
  return android::interface_cast<IDiagnosticsNotificationService>(
      binder(IDiagnosticsNotificationService::kServiceName));
}

ProcessOptions Daemon::client(uid_t uid) const {
  ProcessOptions options;
  options.uid = uid;
  return options;
}

size_t countOf(const std::string& text, const std::string& part) {
  size_t count = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size())) ++count;
  return count;
}

bool publish(int pid, const std::string& key, const std::string& value) {
  static libstatsd::StatsEventWriter writer;  // finds its way from one service to the next
  bool sent = false;
  actAs(applicationUid(),
        [&] { sent = writer.publishApplicationState(pid, key, value) == libstatsd::WriteResult::Sent; });
  return sent;
}

}  // namespace fixture
